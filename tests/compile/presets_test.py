"""What we build with our presets is held to our warnings, whatever the preset."""
import json
import pathlib
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PRESETS = {preset["name"]: preset for preset in json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]}


def variables(name):
    """The cache variables of a preset, those of what it inherits among them."""
    preset = PRESETS[name]
    inherited = variables(preset["inherits"]) if "inherits" in preset else {}
    return inherited | preset.get("cacheVariables", {})


class PresetsTest(unittest.TestCase):
    def test_in_each_a_warning_is_an_error(self):
        for name in PRESETS:
            self.assertEqual(variables(name).get("CMAKE_COMPILE_WARNING_AS_ERROR"), "ON", name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
