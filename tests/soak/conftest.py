"""Where the soak's parts are found."""
import pathlib
import sys

_HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(_HERE), str(_HERE.parent / "faults"), str(_HERE.parent / "system"), str(_HERE.parents[1] / "tools")]
