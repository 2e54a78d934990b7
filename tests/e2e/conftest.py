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
    """The shared library installed beside the tool, through ctypes: restore(data, direction)
    gives (status, restored bytes or None, warning count), as the C interface answers."""
    import ctypes
    from pathlib import Path

    prefix = Path(trdcomp_bin).resolve().parent.parent
    found = sorted(prefix.glob("lib*/libtrdcomp.so*")) + sorted(prefix.glob("lib*/*/libtrdcomp.so*"))
    if not found:
        pytest.exit(f"no libtrdcomp.so under {prefix}", returncode=2)
    lib = ctypes.CDLL(str(found[0]))
    size_t, void_p = ctypes.c_size_t, ctypes.c_void_p
    lib.trdcomp_restore_ex.argtypes = [ctypes.c_char_p, size_t, ctypes.c_int, ctypes.c_int, size_t,
                                       ctypes.POINTER(void_p), ctypes.POINTER(size_t), void_p,
                                       size_t, ctypes.POINTER(size_t), void_p]
    lib.trdcomp_release.argtypes = [void_p]
    lib.trdcomp_release.restype = None

    class Library:
        REQUEST, ANSWER, DETECT = 0, 1, -1

        @staticmethod
        def restore(data, direction=-1, flag=0):
            out, length, warnings = void_p(), size_t(), size_t()
            status = lib.trdcomp_restore_ex(data, len(data), direction, flag, 0,
                                            ctypes.byref(out), ctypes.byref(length), None, 0,
                                            ctypes.byref(warnings), None)
            if status:
                return status, None, warnings.value
            restored = ctypes.string_at(out, length.value)
            lib.trdcomp_release(out)
            return status, restored, warnings.value

    return Library()
