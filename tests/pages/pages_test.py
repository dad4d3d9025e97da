"""Compiles and runs every sample of the pages and compares what it prints with what they show.

A sample is a block of C++ or C, followed by blocks of json or text, its output in that format; if
there is none, it prints nothing. A sample without a main function is the body of a function that is
given `doc`, the object of a document, or `out`, a renderer.
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

LAYER = """#include <vorel/document/Document.h>
#include <vorel/render/Printer.h>
#include <vorel/plain/PlainC.h>
using namespace vorel::literals;
static void sample(vorel::Object doc) {
%s}
int main(int, char** argv) {
   vorel::PrinterConfig config;
   vorel::initPrinterConfig(config, 1, stringToOutputFormat(argv[1]));
   vorel::Printer out(config);
   vorel::document(out, sample);
}
"""

BODY = """#include <initializer_list>
#include <vorel/render/Printer.h>
#include <vorel/plain/PlainC.h>
static void sample(vorel::Renderer& out) {
%s}
int main(int, char** argv) {
   vorel::Printer out(1, stringToOutputFormat(argv[1]), true, false, true, 0);
   out.start();
   sample(out);
   out.end();
}
"""


def samples(page):
    """The samples of a page: line, language, code, and the outputs by format."""
    found = []
    for block in re.finditer(r"^```(\w*)\n(.*?)^```$", page, re.M | re.S):
        language, text = block.groups()
        if language in ("cpp", "c"):
            found.append((page.count("\n", 0, block.start()) + 1, language, text, {}))
        elif language in ("json", "text"):
            found[-1][3][language] = text
    return found


def run(options, folder, language, code):
    """Builds a sample and runs it; what it printed, by format, where that is anything."""
    source = folder / f"sample.{language}"
    layer = "doc." in code
    source.write_text(code if "int main(" in code else (LAYER if layer else BODY) % code)
    compiler = ([options.cc, "-std=c99"] if language == "c" else
                [options.cxx, "-std=c++20" if layer else "-std=c++17"])
    subprocess.run(compiler + ["-Wall", "-Wextra", "-Werror", "-o", folder / "sample", source]
                   + options.flags, check=True)
    formats = ["text"] if "int main()" in code else ["text", "json"]
    printed = {format: subprocess.run([folder / "sample", format], check=True, text=True,
                                      stdout=subprocess.PIPE, timeout=60).stdout
               for format in formats}
    return {format: output for format, output in printed.items() if output}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cc", required=True)
    parser.add_argument("--cxx", required=True)
    parser.add_argument("--pages", nargs="+", required=True, type=pathlib.Path)
    parser.add_argument("flags", nargs="+", help="flags to compile and link with, behind --")
    options = parser.parse_args()
    failed = count = 0
    with tempfile.TemporaryDirectory() as folder:
        for page in options.pages:
            for line, language, code, outputs in samples(page.read_text()):
                count += 1
                printed = run(options, pathlib.Path(folder), language, code)
                if printed != outputs:
                    failed += 1
                    print(f"{page}:{line}: prints {printed}, and not {outputs}")
    print(f"{count} samples, {failed} failed")
    return 1 if failed or not count else 0


if __name__ == "__main__":
    sys.exit(main())
