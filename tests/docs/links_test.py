"""Links between the pages lead somewhere, and every page can be reached from the README."""
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LINK = re.compile(r"\]\(([^)#\s]*)(#[^)]*)?\)")


def pages():
    """Every page in Markdown, but for the changelog."""
    return [ROOT / "README.md", ROOT / "HACKING.md", *sorted((ROOT / "docs").rglob("*.md")),
            *sorted((ROOT / "kit").rglob("*.md"))]


def links(page):
    """(target, anchor) of the links within the project."""
    text = re.sub(r"^```.*?^```$", "", page.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)
    return [((page.parent / path).resolve() if path else page, anchor.lstrip("#"))
            for path, anchor in LINK.findall(text) if "://" not in path]


def anchors(page):
    """What its headings are called in links."""
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)$", page.read_text(encoding="utf-8"), re.MULTILINE)}


class LinksTest(unittest.TestCase):
    def test_lead_somewhere(self):
        count = 0
        for page in pages():
            for target, anchor in links(page):
                count += 1
                with self.subTest(f"{page.relative_to(ROOT)}: {target.name}#{anchor}"):
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(target))
        self.assertGreater(count, 20)

    def test_every_page_is_reached_from_the_readme(self):
        reached, queue = set(), [ROOT / "README.md"]
        while queue:
            page = queue.pop()
            if page not in reached and page.suffix == ".md":
                reached.add(page)
                queue += [target for target, _ in links(page) if target.exists()]
        self.assertEqual([str(page) for page in pages() if page not in reached], [])

    @unittest.skipUnless("APP_CG_BUILD" in os.environ, "wants APP_CG_BUILD, a build with the packages' rules")
    def test_lead_somewhere_in_the_package_of_the_documentation(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["cmake", "--install", os.environ["APP_CG_BUILD"], "--component", "doc", "--prefix", folder],
                           check=True, stdout=subprocess.DEVNULL)
            root = (pathlib.Path(folder) / "share/doc/app-cg-doc").resolve()
            found = [(page.relative_to(root), target) for page in sorted(root.rglob("*.md")) for target, _ in links(page)]
            self.assertGreater(len(found), 20)
            astray = [f"{page}: {target}" for page, target in found if not target.exists() or root not in target.parents]
            self.assertEqual(astray, [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
