"""What is measured, made on the spot: the release, captures from a seed, peers from their sources."""

import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
RELEASE = ROOT / "build/release"
FOLDER = ROOT / "build/bench"
PROGRAM = RELEASE / "collector/dnspair"

# Programs that somebody may have written to compare ours with: sources in one folder, each its own program.
PEER_SOURCES = {"limit": [], "tins_pair": ["-ltins"]}
PEER_FLAGS = ["-O3", "-march=native", "-std=c++17"]


def note(text):
    """A line about the course of things; standard output is for results."""
    print(text, file=sys.stderr, flush=True)


def fail(text):
    sys.exit(f"bench/{pathlib.Path(sys.argv[0]).stem}: {text}")


def build():
    """The release with its benchmarks."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    log = FOLDER / "build.log"
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    targets = ["dnspair", "dns-parser", "make_capture", "plugin_bench", "parts_bench"]
    note("building the release ...")
    with open(log, "w") as output:
        for command in (["cmake", "--preset", "release", "-DDNSPAIR_BENCH=ON", *launcher],
                        ["cmake", "--build", "--preset", "release", "--target", *targets]):
            if subprocess.run(command, cwd=ROOT, stdout=output, stderr=subprocess.STDOUT).returncode != 0:
                fail(f"the build failed; all of its output is in {log.relative_to(ROOT)}")


def is_newer(made, source):
    """Whether it is there, and was made since the source was changed."""
    return made.exists() and made.stat().st_mtime >= source.stat().st_mtime


def capture_path(exchanges, **settings):
    """Where capture() puts it."""
    return FOLDER / ("-".join([str(exchanges), *(f"{key}{value}" for key, value in settings.items())]) + ".pcap")


def capture(exchanges, **settings):
    """A capture of so many exchanges; settings are make_capture's. Made once, and kept for later runs."""
    path, maker = capture_path(exchanges, **settings), RELEASE / "bench/make_capture"
    if not is_newer(path, maker):
        note(f"making a capture of {exchanges} exchanges ...")
        unfinished = path.with_suffix(".part")
        words = [f"{key}={value}" for key, value in settings.items()]
        subprocess.run([maker, unfinished, f"exchanges={exchanges}", *words], check=True)
        unfinished.rename(path)
    return path


def compressed(path, command, suffix):
    """The file as `command` compresses it, in the folder of captures."""
    result = FOLDER / (path.name + suffix)
    if not is_newer(result, path):
        unfinished = result.with_suffix(".part")
        with open(path, "rb") as plain, open(unfinished, "wb") as output:
            subprocess.run(command, stdin=plain, stdout=output, check=True)
        unfinished.rename(result)
    return result


def peers(folder):
    """The peers whose sources are in the folder, built for this very processor: name -> program."""
    built = {}
    for name, libraries in PEER_SOURCES.items():
        source = folder / f"{name}.cc"
        if not source.exists():
            note(f"skipped: {name}: {folder} has no {source.name}")
            continue
        program = FOLDER / f"peer-{name}"
        if not all(is_newer(program, file) for file in folder.iterdir()):
            compiler = os.environ.get("CXX", "g++")
            result = subprocess.run([compiler, *PEER_FLAGS, "-o", program, source, *libraries],
                                    stderr=subprocess.PIPE, text=True)
            if result.returncode != 0:
                reason = next((line for line in result.stderr.splitlines() if "error" in line), "no reason given")
                note(f"skipped: {name}: {compiler}: {reason}")
                continue
        built[name] = program
    return built
