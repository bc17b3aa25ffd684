"""No type has two definitions.

Two files of one program that each define `cg::Entry` for themselves compile and link: the linker keeps one of
the two constructors, and the other file works on a type that it does not know. What a file has for itself belongs
into its unnamed namespace; then nothing can be confused. Compilers find it with optimisation over the whole
program only, which takes minutes.

Types within functions and within unnamed namespaces are nobody else's, and passed over.
"""

import argparse
import collections
import pathlib
import sys
import tempfile
import unittest

from sources import names, names_in, sources

options = argparse.Namespace()


def types_in(text):
    """The qualified names of the types that a text defines where others could see them."""
    return [found.name for found in names(text) if found.kind == "type"]


def definitions(source, folders):
    places = collections.defaultdict(list)
    for folder in folders:
        found_there = sources(source / folder)
        if not found_there:
            raise ValueError(f"{folder} has no sources")
        for path in found_there:
            for found in names_in(path):
                if found.kind == "type":
                    places[found.name].append(str(path.relative_to(source)))
    return places


def doubles(source, folders, replaced=()):
    """The types with several definitions, and where; of sources that a test program replaces none counts."""
    found = {name: [place for place in where if place not in replaced]
             for name, where in definitions(source, folders).items()}
    return {name: where for name, where in found.items() if len(where) > 1}


# The programs, as folders whose objects come together.
PROGRAMS = {
    "cgctl": ["platform", "builtin", "lib", "kit", "tools/cgctl"],
    "cg_sim": ["platform", "builtin", "lib", "tools/sim"],
    "cg_recorderd": ["platform", "builtin", "lib", "tools/recorder"],
    "app_cg": ["platform", "builtin", "src"],
    "app_cg_tests": ["platform", "src", "tests/recording_platform", "tests/unit/app_cg"],
    "builtin_tests": ["platform", "builtin", "tests/unit/support", "tests/unit/builtin"],
    "kit_core_tests": ["platform", "builtin", "lib/base", "lib/modules", "lib/records", "kit/core", "tests/unit/kit/core"],
}
PROGRAMS["kit_tests"] = [*PROGRAMS["cgctl"], "tests/unit/support", "tests/unit/kit/api", "tests/unit/kit/run",
                         "tests/unit/kit/try"]
for program, room in (("cgctl", "cgctl"), ("cg_sim", "sim"), ("cg_recorderd", "recorder")):
    PROGRAMS[f"{program}_tests"] = [*PROGRAMS[program], "tests/unit/support", f"tests/unit/tools/{room}"]
for room in ("admission", "base", "daemon", "history", "modules", "process", "records"):
    PROGRAMS[f"{room}_tests"] = ["platform", "builtin", "lib", "tests/unit/support", f"tests/unit/lib/{room}"]
# What these have sources of their own for.
REPLACED = {"kit_core_tests": ["builtin/loop/loop.cpp", "builtin/store/client.cpp"],
            "admission_tests": ["builtin/store/client.cpp"]}


class TypesTest(unittest.TestCase):
    maxDiff = None

    def test_no_program_has_two_types_of_one_name(self):
        for program, folders in PROGRAMS.items():
            with self.subTest(program):
                self.assertEqual(doubles(options.source, folders, REPLACED.get(program, ())), {})

    def test_the_types_that_are_there_are_seen(self):
        seen = definitions(options.source, PROGRAMS["cgctl"])
        wanted = {"vx_mom_result", "app_cg_kit_check", "app_cg_kit::Module", "cg::Position", "cg::Failure"}
        self.assertEqual(wanted - set(seen), set())
        self.assertGreater(len(seen), 150)

    def test_every_form_of_a_definition_is_seen(self):
        text = """
        namespace a::b { template <typename T, typename = std::vector<int>> class One final : public Base<T> { int x{}; }; }
        namespace c { enum class Two : int { x }; struct [[nodiscard]] Three { struct Inner {}; }; namespace { struct No {}; } }
        extern "C" { typedef struct four { int x; } four_t; union five { int x; }; }
        struct Outer::Parts : Base {};
        template <> struct std::hash<a::Six> {};
        """
        self.assertEqual(
            types_in(text),
            ["a::b::One", "c::Two", "c::Three", "four", "five", "Outer::Parts", "std::hash<a::Six>"],
        )

    def test_what_is_no_definition_for_others_is_passed_over(self):
        text = r"""
        // struct Comment {
        #define MACRO struct Macro {
        namespace { struct Own {}; namespace inner { class Own {}; } }
        struct timeval now() { struct stat status {}; struct Local {}; return {}; }
        const char *text = "struct Text {"; const char *raw = R"(struct Raw {)"; char brace = '{'; int n = 1'000;
        class Declared; enum Forward : int; template <typename T, class U> void f(struct Argument *x) { }
        std::vector<struct Member> variable{1, 2}; auto lambda = [](struct Argument x) { return x; };
        """
        self.assertEqual(types_in(text), [])

    def test_the_check_sees_two_of_a_name(self):
        with tempfile.TemporaryDirectory() as folder:
            tree = pathlib.Path(folder)
            for name, text in {
                "tools/a.cpp": "namespace cg {\nstruct Entry { int x; };\nnamespace {\nstruct Own {}; }\n}\n",
                "tools/b.cpp": "namespace cg\n{\nstruct Entry {\n    char x;\n};\nnamespace {\nstruct Own {}; }\n}\n",
                "tools/c.cpp": "namespace other { struct Entry {}; }\n",
            }.items():
                path = tree / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            self.assertEqual(doubles(tree, ["tools"]), {"cg::Entry": ["tools/a.cpp", "tools/b.cpp"]})
            self.assertEqual(doubles(tree, ["tools"], ["tools/a.cpp"]), {})
            with self.assertRaisesRegex(ValueError, "kit has no sources"):
                doubles(tree, ["tools", "kit"])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source", type=pathlib.Path, required=True)
    parser.parse_args(namespace=options)
    unittest.main(argv=sys.argv[:1], verbosity=2)


if __name__ == "__main__":
    main()
