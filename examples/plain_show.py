#!/usr/bin/env python3
"""plain_show: this machine's devices by class, from Python.

The library is loaded with ctypes. Its plain functions print structure and decoration, but no
values, so the document is a tree of names; plain_show.c prints the same from C.
"""
import argparse
import contextlib
import ctypes
import os
import signal
import sys
import threading

FORMATS = {"text": 1, "json": 2}
STDOUT = 1
READER_GONE = 128 + signal.SIGPIPE  # as shells report that signal
CONTROL_C = 128 + signal.SIGINT


def load(path):
    """Loads the library and declares what is used of it; OSError if it cannot be loaded."""
    library = ctypes.CDLL(path, use_errno=True)
    handle, string, integer = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int
    signatures = {
        "initPrinter": (handle, [integer, ctypes.c_uint]),
        "deinitPrinter": (None, [handle]),
        "start": (None, [handle]),
        "end": (None, [handle]),
        "startSubmodel": (None, [handle, string]),
        "endSubmodel": (None, [handle]),
        "startDict": (None, [handle, string]),
        "endDict": (None, [handle]),
        "addFrills": (integer, [handle, string, integer]),  # and what the format asks for
        "vorel_isInterrupted": (integer, [integer]),
    }
    for name, (result, arguments) in signatures.items():
        try:
            function = getattr(library, name)
        except AttributeError as error:
            raise OSError(str(error)) from None
        function.restype, function.argtypes = result, arguments
    return library


class Renderer:
    """Prints on a descriptor; a context manager that releases the renderer at its end.

    To be used by the thread that entered it. Raises OSError when the output cannot be written.
    """

    def __init__(self, library, descriptor, output_format):
        self._library = library
        self._settings = descriptor, FORMATS[output_format]
        self._handle = None

    def __enter__(self):
        self._handle = self._library.initPrinter(*self._settings)
        return self

    def __exit__(self, *exception):
        self._library.deinitPrinter(self._handle)
        self._handle = None

    def _call(self, name, *arguments):
        getattr(self._library, name)(self._handle, *arguments)
        # A write that fails only marks its thread.
        if self._library.vorel_isInterrupted(threading.get_native_id()):
            error = ctypes.get_errno()
            raise OSError(error, f"cannot write: {os.strerror(error)}")

    @contextlib.contextmanager
    def _bracket(self, opening, closing, *arguments):
        self._call(opening, *arguments)
        yield
        self._call(closing)

    def document(self):
        return self._bracket("start", "end")

    def dictionary(self, name):
        return self._bracket("startDict", "endDict", name)

    def submodel(self, name):
        return self._bracket("startSubmodel", "endSubmodel", name)

    def frill(self, text):
        self._call("addFrills", b"%s", 0, text)


def printable(name):
    """A name fit for JSON and for terminals: the library escapes nothing."""
    return bytes(c if 0x20 <= c <= 0x7E and c not in b'"\\' else ord("?") for c in name)


def devices(folder):
    try:
        with os.scandir(folder) as entries:
            return sorted(entry.name for entry in entries if entry.is_symlink())
    except (FileNotFoundError, NotADirectoryError):
        return []  # a class that is gone by now


def print_devices(out, classes):
    with out.document():
        out.frill(b"Devices by class\n\n")
        with out.dictionary(b"devices"):
            for name in classes:
                shown = printable(name)
                with out.submodel(shown):
                    out.frill(shown + b"\n")
                    for device in devices(os.path.join(b"/sys/class", name)):
                        shown = printable(device)
                        with out.submodel(shown):
                            out.frill(b"   " + shown + b"\n")


def main():
    parser = argparse.ArgumentParser(prog="plain_show.py")
    parser.add_argument("--format", choices=FORMATS, default="text")
    parser.add_argument("--library", default="libVorel.so.1", metavar="PATH")
    options = parser.parse_args()
    try:
        library = load(options.library)
        classes = sorted(name for name in os.listdir(b"/sys/class") if not name.startswith(b"."))
        with Renderer(library, STDOUT, options.format) as out:
            print_devices(out, classes)
    except BrokenPipeError:  # and no SIGPIPE, which Python ignores
        return READER_GONE
    except OSError as error:
        print(f"plain_show.py: {error.strerror or error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return CONTROL_C
    return 0


if __name__ == "__main__":
    sys.exit(main())
