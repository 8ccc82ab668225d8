"""Loading the library, its declared functions, and errors as exceptions."""
import ctypes
import ctypes.util
import os
import sys
import threading

from . import _api

_NAMES = ("Pix95.dll",) if sys.platform == "win32" else ("libpix95.so", "libpix95.so.0")


def _candidates():
    """Where the library is looked for, in order: PIX95_LIBRARY, beside the
    package (a copy in it, or the lib folder of the prefix it is installed
    in, or a build folder of the checkout it lives in), then the system's
    search path."""
    given = os.environ.get("PIX95_LIBRARY")
    if given:
        yield given
        return
    here = os.path.dirname(os.path.abspath(__file__))
    folders = [here]
    try:
        from . import _location  # written by `cmake --install`
        folders.append(os.path.normpath(os.path.join(here, _location.LIBRARY_DIR)))
    except ImportError:
        pass
    folders.append(os.path.normpath(os.path.join(here, "..", "..", "build")))
    for folder in folders:
        for name in _NAMES:
            path = os.path.join(folder, name)
            if os.path.exists(path):
                yield path
    found = ctypes.util.find_library("pix95") or ctypes.util.find_library("Pix95")
    if found:
        yield found
    yield from _NAMES  # the loader's own search (LD_LIBRARY_PATH, PATH on Windows)


def _load():
    errors = []
    for path in _candidates():
        try:
            # The library's calling convention is the C default on every
            # platform (cdecl for the 32-bit DLL too): CDLL, not WinDLL.
            return ctypes.CDLL(path), path
        except OSError as e:
            errors.append(f"{path}: {e}")
    raise ImportError("pix95: the library was not found (set PIX95_LIBRARY to its path); tried:\n  "
                      + "\n  ".join(errors))


class Library:
    """The C interface as ctypes functions, each with the argument and result
    types of its declaration in pix95.h.  Statuses come back as in C; the
    Python layer of the package turns them into PixError.  Functions the
    header declares but this build of the library does not export are
    absent (hasattr is False)."""

    def __init__(self):
        self._dll, self.path = _load()
        self.missing = []
        for name, (result, arguments) in _api.FUNCTIONS.items():
            try:
                f = getattr(self._dll, name)
            except AttributeError:
                self.missing.append(name)
                continue
            f.restype = result
            f.argtypes = arguments
            setattr(self, name, f)


lib = Library()
C = _api.CONSTANTS


def is_error(code):
    return (code & 0x00FF0000) != 0


class PixError(Exception):
    """A failed library call: the status code, the reporting function and
    the library's message (empty when the failure was not reported)."""

    def __init__(self, code, function, message=""):
        self.code = code
        self.function = function
        self.message = message
        text = f"{function}: status 0x{code:08X}"
        super().__init__(text + (f": {message}" if message else ""))

    @property
    def number(self):
        """The error number (bits 16-23 of the code)."""
        return (self.code >> 16) & 0xFF


# ---------------------------------------------------------------- reporting

_lock = threading.RLock()  # the library takes no locks: calls are serialised here
_state = threading.local()
_reports = []
_NO_HANDLER = _api.tKVB_Err_handler()  # a null function pointer
_user_handler = None  # what the binding restores after its calls
_depth = 0


@_api.tKVB_Err_handler
def _keep_report(function, code, message):
    _reports.append((function.decode(errors="replace") if function else "", code,
                     message.decode(errors="replace") if message else ""))
    if _user_handler is not None:
        return _user_handler(function, code, message)
    return code


def set_error_handler(handler):
    """Installs a C handler (a tKVB_Err_handler, kept alive here) to be the
    library's between the binding's calls, or None for none."""
    global _user_handler
    with _lock:
        _user_handler = handler
        lib.KVB_err_set_reporting(1, handler or _NO_HANDLER)


class session:
    """The library held for a run of calls: the lock taken and the binding's
    handler installed (the previous one restored when the outermost ends)."""

    __slots__ = ()

    def __enter__(self):
        global _depth
        _lock.acquire()
        if _depth == 0:
            del _reports[:]
            lib.KVB_err_set_reporting(1, _keep_report)
        _depth += 1
        return self

    def __exit__(self, *exc):
        global _depth
        _depth -= 1
        if _depth == 0:
            lib.KVB_err_set_reporting(1, _user_handler or _NO_HANDLER)
        _lock.release()
        return False


def check(code, function):
    """Raises PixError for an error code (with the library's report of it
    when there is one), else returns the code."""
    if not is_error(code):
        return code
    for reported_by, reported, message in reversed(_reports):
        if reported == code:
            raise PixError(code, reported_by or function, message)
    raise PixError(code, function)
