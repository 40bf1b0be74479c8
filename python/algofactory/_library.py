"""Finding and loading libAlgoFactory.so, with the C prototypes the package uses."""
import ctypes
import os
import threading
from pathlib import Path

LIBRARY_NAME = "libAlgoFactory.so"
MESSAGE_SIZE = 1024

ProgressCallback = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_double, ctypes.c_char_p, ctypes.c_void_p)
OutputCallback = ctypes.CFUNCTYPE(None, ctypes.POINTER(ctypes.c_char), ctypes.c_size_t, ctypes.c_void_p)


class AlgoResult(ctypes.Structure):
    """The caller-owned progress and result record of every entry."""
    _fields_ = [
        ("callback", ProgressCallback),
        ("userData", ctypes.c_void_p),
        ("code", ctypes.c_int32),
        ("message", ctypes.c_char * MESSAGE_SIZE),
    ]


class LibraryNotFound(OSError):
    """libAlgoFactory.so is not where the package looked, or does not load."""


_lock = threading.Lock()
_library = None


def candidate_paths():
    """Where the library is looked for, in order."""
    explicit = os.environ.get("ALGOFACTORY_LIBRARY")
    if explicit:  # an explicit choice is the only one: never a different library silently
        path = Path(explicit)
        return [path / LIBRARY_NAME if path.is_dir() else path]
    build = os.environ.get("ALGOFACTORY_BUILD_DIR")
    if build:
        return [Path(build) / "bin" / LIBRARY_NAME]
    paths = []
    package = Path(__file__).resolve().parent
    paths.append(package / "lib" / LIBRARY_NAME)      # a wheel-like copy beside the package
    paths.append(package.parent.parent / "bin" / LIBRARY_NAME)  # <prefix>/python/algofactory
    paths.append(package.parent.parent / "build" / "bin" / LIBRARY_NAME)  # a source checkout
    return paths


def library():
    """The loaded library (loaded once, on first use)."""
    global _library
    with _lock:
        if _library is None:
            _library = _load()
        return _library


def library_path():
    return Path(library()._name)


def _load():
    tried = candidate_paths()
    path = next((p for p in tried if p.is_file()), None)
    if path is None:
        raise LibraryNotFound(
            "libAlgoFactory.so was not found; set ALGOFACTORY_LIBRARY to the library or its folder "
            "(looked at: " + ", ".join(str(p) for p in tried) + ")")
    try:
        lib = ctypes.CDLL(str(path))
    except OSError as error:
        raise LibraryNotFound("libAlgoFactory.so at %s does not load: %s" % (path, error)) from None
    for name in ("ExcuteAlgo", "AlgoFactory_CallEntry", "AlgoFactory_EntryKinds",
                 "AlgoFactory_SetThreadOutput", "AlgoFactory_SetApplicationDir", "AlgoFactory_StartApplication"):
        if not hasattr(lib, name):
            raise LibraryNotFound("the library at %s has no %s; it is older than this package" % (path, name))
    lib.ExcuteAlgo.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.POINTER(AlgoResult)]
    lib.ExcuteAlgo.restype = ctypes.c_bool
    lib.AlgoFactory_CallEntry.argtypes = [ctypes.c_char_p, ctypes.c_int, ctypes.POINTER(ctypes.c_char_p),
                                          ctypes.POINTER(AlgoResult)]
    lib.AlgoFactory_CallEntry.restype = ctypes.c_bool
    lib.AlgoFactory_EntryKinds.argtypes = [ctypes.c_char_p]
    lib.AlgoFactory_EntryKinds.restype = ctypes.c_char_p
    lib.AlgoFactory_SetThreadOutput.argtypes = [OutputCallback, ctypes.c_void_p]
    lib.AlgoFactory_SetThreadOutput.restype = None
    lib.AlgoFactory_SetApplicationDir.argtypes = [ctypes.c_char_p]
    lib.AlgoFactory_SetApplicationDir.restype = None
    # The descriptions and data files sit beside the library's folder (bin/../Model/abd), not
    # beside the interpreter.
    lib.AlgoFactory_SetApplicationDir(os.fsencode(str(path.resolve().parent)))
    lib.AlgoFactory_StartApplication.argtypes = []
    lib.AlgoFactory_StartApplication.restype = ctypes.c_bool
    # Charts and pictures need a Qt GUI application; an interpreter has none (a GIS has its own).
    lib.AlgoFactory_StartApplication()
    return lib
