"""End-to-end tests of the installed trdcomp tool. TRDCOMP_BIN names the installed binary and
TRDCOMP_SAMPLES the sample-message writer of the build tree (examples/trdcomp-samples)."""

import os
import subprocess

import pytest


def _env_path(name):
    path = os.environ.get(name)
    if not path or not os.path.exists(path):
        pytest.exit(f"{name} must name an existing file (got {path!r})", returncode=2)
    return path


@pytest.fixture(scope="session")
def trdcomp_bin():
    return _env_path("TRDCOMP_BIN")


@pytest.fixture(scope="session")
def samples(tmp_path_factory):
    """Raw sample messages of every function number, direction and codec, 3 records each."""
    directory = tmp_path_factory.mktemp("samples")
    subprocess.run([_env_path("TRDCOMP_SAMPLES"), "all", str(directory), "3"], check=True)
    return directory


@pytest.fixture(scope="session")
def capture(tmp_path_factory):
    path = tmp_path_factory.mktemp("capture") / "capture.bin"
    with open(path, "wb") as f:
        subprocess.run([_env_path("TRDCOMP_SAMPLES"), "capture", "4"], stdout=f, check=True)
    return path


@pytest.fixture
def run(trdcomp_bin):
    """Runs trdcomp with arguments (and optional stdin bytes); returns the completed process."""
    def call(*args, stdin=None):
        return subprocess.run([trdcomp_bin, *map(str, args)], input=stdin, capture_output=True,
                              timeout=60)
    return call


@pytest.fixture(scope="session")
def library(trdcomp_bin):
    """The Python module installed beside the tool: its restore_raw is the library's restore
    (trdcomp_restore_ex), bytes and warnings."""
    import sys
    from pathlib import Path

    prefix = Path(trdcomp_bin).resolve().parent.parent
    found = sorted(prefix.glob("**/site-packages/trdcomp/__init__.py"))
    if not found:
        pytest.exit(f"no Python module under {prefix}", returncode=2)
    sys.path.insert(0, str(found[0].parent.parent))
    import trdcomp
    return trdcomp
