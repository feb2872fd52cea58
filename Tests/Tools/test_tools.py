"""The checks must be able to fail: each is given something wrong, in a project of its own."""

import json
import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]

on_linux = pytest.mark.skipif(os.uname().sysname != "Linux", reason="the cross check is for Linux")


@pytest.fixture
def project(tmp_path: Path) -> Path:
    """An empty project with this one's tools and configuration."""
    folder = tmp_path / "project"
    folder.mkdir()
    shutil.copytree(ROOT / "Tools", folder / "Tools", symlinks=True)
    for name in (".clang-format", ".clang-tidy", ".shellcheckrc"):
        shutil.copy(ROOT / name, folder)
    subprocess.run(["git", "init", "-q", folder], check=True)
    return folder


def run(program: Path, *arguments: str, **environment: str) -> subprocess.CompletedProcess:
    return subprocess.run(
        [program, *arguments], env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
        capture_output=True, text=True, check=False, timeout=60,
    )


def write(path: Path, text: str) -> Path:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    return path


def test_layout_check_finds_an_untracked_file(project: Path):
    assert run(project / "Tools/format").returncode == 0
    source = write(project / "Sources/Wide.cpp", "int  wide( ) {return 1;}\n")

    failed = run(project / "Tools/format")

    assert failed.returncode != 0
    assert "Wide.cpp" in failed.stderr
    assert run(project / "Tools/format", "--fix").returncode == 0
    assert source.read_text() == "int wide() {\n    return 1;\n}\n"
    assert run(project / "Tools/format").returncode == 0


def test_shell_check_knows_scripts_by_their_first_line(project: Path):
    assert run(project / "Tools/shellcheck").returncode == 0, "the tools themselves"
    write(project / "Sources/Text.cpp", 'auto script = R"(\n#!/bin/sh\nrm -rf $1/*\n)";\n')
    assert run(project / "Tools/shellcheck").returncode == 0, "not a script"
    write(project / "helper", '#!/usr/bin/env bash\ncd "$1"\nrm $2\n')

    failed = run(project / "Tools/shellcheck")

    assert failed.returncode != 0
    assert "In helper line 3" in failed.stdout


class Tidied:
    """A build of sources, at first of one and its header, and clang-tidy over it."""

    def __init__(self, project: Path, cache: Path):
        self.project = project
        self.cache = cache
        self.header = write(project / "Sources/One.h", "#pragma once\nint one();\n")
        self.source = project / "Sources/One.cpp"
        self.build({"One": '#include "One.h"\n\nint one() {\n    return 1;\n}\n'})

    def build(self, sources: dict[str, str]) -> None:
        """Compiles these from now on."""
        self.compile([(0, write(self.project / f"Sources/{name}.cpp", text))
                      for name, text in sources.items()])

    def build_together(self, *programs: dict[str, str]) -> None:
        """Compiles these from now on, as CMake does for unity builds."""
        self.compile([(number, self.joined(f"{number}/Unity/unity_0_cxx.cxx", sources))
                      for number, sources in enumerate(programs)])

    def joined(self, name: str, sources: dict[str, str]) -> Path:
        files = [write(self.project / f"Sources/{name}.cpp", text) for name, text in sources.items()]
        return write(self.project / "build" / name,
                     "".join(f'#include "{file}"\n' for file in files))

    def compile(self, files: list[tuple[int, Path]]) -> None:
        """Each as a part of the program with this number."""
        build, commands = self.project / "build", []
        ninja = "rule c\n  command = clang++-19 -std=c++20 -DNUMBER=$number -MD -MF $out.d -o $out -c $in\n" \
            "  depfile = $out.d\n  deps = gcc\n"
        for number, file in files:
            name = f"{number}-{file.stem}.o"
            command = f"clang++-19 -std=c++20 -DNUMBER={number} -o {name} -c {file}"
            commands.append({"directory": str(build), "file": str(file), "command": command})
            ninja += f"build {name}: c {file}\n  number = {number}\n"
        write(build / "compile_commands.json", json.dumps(commands))
        write(build / "build.ninja", ninja)
        subprocess.run(["ninja", "-C", build], check=True, capture_output=True)

    def tidy(self) -> subprocess.CompletedProcess:
        return run(self.project / "Tools/tidy", "--build", str(self.project / "build"),
                   WSPARO_CACHE=str(self.cache))


@pytest.fixture
def tidied(project: Path, tmp_path: Path) -> Tidied:
    return Tidied(project, tmp_path / "cache")


def test_tidy_remembers_a_clean_source_until_it_changes(tidied: Tidied):
    first, second = tidied.tidy(), tidied.tidy()
    assert (first.returncode, first.stdout) == (0, "tidy: 1 sources, 1 checked, 0 findings\n")
    assert (second.returncode, second.stdout) == (0, "tidy: 1 sources, 0 checked, 0 findings\n")

    write(tidied.source, '#include "One.h"\n\nint one() {\n    int Bad = 1;\n    return Bad;\n}\n')
    for _ in range(2):  # a finding is not forgotten
        failed = tidied.tidy()
        assert failed.returncode == 1
        assert "invalid case style for variable 'Bad'" in failed.stdout


def test_tidy_looks_again_when_a_header_changes(tidied: Tidied):
    assert tidied.tidy().returncode == 0
    write(tidied.header, "#pragma once\nint one();\nstruct lower {};\n")

    failed = tidied.tidy()

    assert failed.returncode == 1
    assert "invalid case style for struct 'lower'" in failed.stdout


def test_tidy_looks_again_when_its_configuration_changes(tidied: Tidied):
    assert tidied.tidy().returncode == 0
    configuration = tidied.project / ".clang-tidy"
    write(configuration, configuration.read_text().replace("FunctionCase: camelBack", "FunctionCase: UPPER_CASE"))
    assert tidied.tidy().returncode == 1


MANY = {f"N{number:02}": f"int number{number:02}() {{\n    return {number};\n}}\n"
        for number in range(12)}


def test_tidy_remembers_what_it_has_checked_together(tidied: Tidied):
    tidied.build(MANY)
    assert tidied.tidy().stdout == "tidy: 12 sources, 12 checked, 0 findings\n"
    assert tidied.tidy().stdout == "tidy: 12 sources, 0 checked, 0 findings\n"


def test_tidy_checks_apart_what_has_names_in_common(tidied: Tidied):
    own = "namespace {\nint own() {\n    return 1;\n}\n}  // namespace\n\n"
    common = {name: own + text.replace("return", "return own() *")
              for name, text in MANY.items() if name in ("N01", "N02")}
    tidied.build({**MANY, **common})
    assert tidied.tidy().stdout == "tidy: 12 sources, 12 checked, 0 findings\n"
    assert tidied.tidy().stdout == "tidy: 12 sources, 0 checked, 0 findings\n"


def test_tidy_knows_the_sources_of_a_unity_build(tidied: Tidied):
    sources = {"One": '#include "One.h"\n\nint one() {\n    return 1;\n}\n',
               "Two": "int two() {\n    return 2;\n}\n"}
    tidied.build_together(sources)
    assert tidied.tidy().stdout == "tidy: 2 sources, 2 checked, 0 findings\n"
    assert tidied.tidy().stdout == "tidy: 2 sources, 0 checked, 0 findings\n"

    write(tidied.project / "Sources/Two.cpp", "int Bad() {\n    return 2;\n}\n")
    failed = tidied.tidy()

    assert failed.returncode == 1
    assert f"{tidied.project}/Sources/Two.cpp:1:5: error: invalid case style" in failed.stdout
    assert failed.stdout.endswith("tidy: 2 sources, 1 checked, 1 findings\n")


def test_tidy_compiles_a_source_as_its_program_does(tidied: Tidied):
    tidied.build_together(*({f"N{number}": f"static_assert(NUMBER == {number});\n"} for number in range(3)))
    assert tidied.tidy().stdout == "tidy: 3 sources, 3 checked, 0 findings\n"


def test_tidy_blames_the_source_among_many(tidied: Tidied):
    tidied.build({**MANY, "N03": "int Bad() {\n    return 3;\n}\n"})
    for checked in (12, 1):
        failed = tidied.tidy()
        assert failed.returncode == 1
        assert f"{tidied.project}/Sources/N03.cpp:1:5: error: invalid case style" in failed.stdout
        assert failed.stdout.endswith(f"tidy: 12 sources, {checked} checked, 1 findings\n")


def test_tidy_blames_a_header_that_many_share(tidied: Tidied):
    header = write(tidied.project / "Sources/Shared.h", "#pragma once\nstruct lower {};\n")
    tidied.build({name: '#include "Shared.h"\n\n' + text for name, text in MANY.items()})
    failed = tidied.tidy()
    assert failed.returncode == 1
    assert f"{header}:2:8: error: invalid case style for struct 'lower'" in failed.stdout
    assert failed.stdout.endswith("tidy: 12 sources, 12 checked, 1 findings\n")


@pytest.mark.parametrize("mistake, report", [
    ("(std::chrono::nanoseconds::max() + std::chrono::nanoseconds(count)).count()", "signed integer overflow"),
    ("std::accumulate(new int[1], new int[1] + count, 0)", "heap-buffer-overflow"),
    ("*std::unique_ptr<int>()", "null pointer"),
])
def test_the_sanitizers_see_what_goes_wrong_in_library_headers(tmp_path: Path, mistake, report):
    source = write(tmp_path / "mistake.cpp", "#include <chrono>\n#include <memory>\n#include <numeric>\n"
                   f"int main(int count, char**) {{ return ({mistake}) == 1; }}\n")
    subprocess.run(
        ["clang++-19", "-std=c++20", "-w", "-fsanitize=address,undefined", "-fno-sanitize-recover=all",
         f"-fsanitize-ignorelist={ROOT}/cmake/sanitizers.ignore", source, "-o", tmp_path / "mistake"],
        check=True)
    ended = run(tmp_path / "mistake")
    assert ended.returncode != 0
    assert report in ended.stderr


@on_linux
def test_every_declared_function_and_constant_gets_into_the_link_stub(project: Path, tmp_path: Path):
    frameworks = project / "Tools/macos/frameworks"
    shutil.rmtree(frameworks)
    write(frameworks / "Sample/Sample.h", """
        #define CF_EXPORT extern
        typedef struct { int (*member)(void); } SampleContext;
        static inline int sampleInline(int value) { int twice = 2 * value; return twice; }
        CF_EXPORT const SampleRef kSampleConstant;  // extern int notThisOne;
        CF_EXPORT const void *SamplePointer(const void *value,
                                            SampleCallBack callBack);
        extern bool SampleWithError(SampleRef sample, int *error);
    """)
    assert run(project / "Tools/macos/make-frameworks", str(tmp_path / "made")).returncode == 0

    stub = (tmp_path / "made/Sample.framework/Sample.tbd").read_text()

    symbols = re.search(r"symbols: \[ (.*?) \]", stub, re.DOTALL)[1]
    assert re.split(r",\s+", symbols) == ["_SamplePointer", "_SampleWithError", "_kSampleConstant"]


@on_linux
def test_a_compiler_with_other_bytes_than_known_is_never_unpacked(project: Path, tmp_path: Path):
    write(tmp_path / "bin/npm", "#!/bin/sh\necho other bytes >package.tgz\n").chmod(0o755)
    cache = tmp_path / "cache"

    failed = run(project / "Tools/macos/fetch-zig", PATH=f"{tmp_path}/bin:{os.environ['PATH']}",
                 WSPARO_CACHE=str(cache), ZIG="")

    assert failed.returncode == 1
    assert "is not what was expected" in failed.stderr
    assert list(cache.iterdir()) == []
