"""A tree to change, made of one that stays as it is."""
import shutil
import subprocess


class Layer:
    """The tree `base` in folder/root, where changes are this layer's own: in the file system itself when it can do that,
    else in a copy."""

    def __init__(self, base, folder):
        self.folder = folder
        self.root = folder / "root"
        places = {name: folder / name for name in ("upper", "work", "root")}
        for place in places.values():
            place.mkdir()
        self._mounted = subprocess.run(
            ["mount", "-t", "overlay", "overlay", "-o",
             f"lowerdir={base},upperdir={places['upper']},workdir={places['work']}", self.root],
            stderr=subprocess.DEVNULL, check=False).returncode == 0
        if not self._mounted:
            self.root.rmdir()
            subprocess.run(["cp", "-a", "--reflink=auto", base, self.root], check=True)

    def close(self):
        """Removes what was changed."""
        if self._mounted:
            subprocess.run(["umount", self.root], check=True)
        for place in self.folder.iterdir():
            if place.is_dir():
                shutil.rmtree(place)
