#!/usr/bin/env python3
"""Runs clang-tidy over sources, several of one directory in one go.

A source is a few hundred lines behind a hundred thousand of headers, and clang-tidy asks all of them. So
sources that are compiled alike are put behind each other in one file, which clang-tidy reads once; what it
says is told by the source's own name and line. Sources that do not get on with each other, for their helpers
have the same name, come in different files.

    tools/lint.py BUILD FILE...

BUILD has a compile_commands.json. The end of it is status 1 where something was found.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

CLANG_TIDY = os.environ.get("CLANG_TIDY", "clang-tidy-14")
# A check that costs nothing, for clang-tidy wants one.
HARMLESS = "--checks=-*,modernize-deprecated-headers"
# More in one file save little more, and two processors want something to share.
TOGETHER = 12

INCLUDE = re.compile(r"\s*#include\b")
PLACE = re.compile(r"(?P<file>/[^:\s]+):(?P<line>\d+):")
REMARK = re.compile(r"\d+ (warnings?|errors?)( and \d+ errors?)? (generated\.|treated as errors?)$|Error while processing ")


def compile_flags(build):
    """The flags of every source, without the compiler and what belongs to one object."""
    flags = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        words = shlex.split(entry["command"])[1:]
        kept = []
        while words:
            word = words.pop(0)
            if word in ("-o", "-c"):
                words.pop(0)
            else:
                kept.append(word)
        flags.setdefault(os.path.realpath(entry["file"]), kept)
    return flags


class Batch:
    """Sources behind each other in one file, below the headers of all of them."""

    def __init__(self, path, sources, flags, renamed=()):
        self.path = path
        self.sources = sources
        self.flags = [*flags, f"-I{os.path.dirname(sources[0])}"]
        self.renamed = set(renamed)  # pairs of a source and a helper of it that another one has as well
        self.starts = []
        headers, bodies = {}, []
        for source in sources:
            bodies.append(without_headers(pathlib.Path(source).read_text().split("\n"), headers))
        lines = list(headers)
        for number, (source, body) in enumerate(zip(sources, bodies)):
            names = sorted(name for of, name in self.renamed if of == source)
            lines += [f"#define {name} {name}_{number}" for name in names]
            self.starts.append(len(lines))
            lines += apart(body, number)
            lines += [f"#undef {name}" for name in names]
        path.write_text("\n".join(lines) + "\n")

    def source_at(self, line):
        """The source that a line of the file comes from, and its line there."""
        number = max((n for n, start in enumerate(self.starts) if start < line), default=0)
        return self.sources[number], line - self.starts[number]

    def conflicts(self):
        """Helpers that an earlier source has as well, and sources that do not compile for another reason."""
        said = self.tidy(HARMLESS, "-ferror-limit=0").stdout
        twice, others = set(), set()
        for line, text in re.findall(rf"^{re.escape(str(self.path))}:(\d+):\d+: (?:fatal )?error: (.*)", said, re.M):
            source = self.source_at(int(line))[0]
            name = re.match(r"redefinition of '(\w+)'", text)
            if name:
                twice.add((source, name[1]))
            else:
                others.add(source)
        return twice, others

    def check(self):
        """What clang-tidy has to say, by the places of the sources; empty if nothing."""
        # With its analyzer, clang-tidy keeps to itself what the compiler has to say.
        compiled, run = self.tidy(HARMLESS), self.tidy()
        if "[clang-diagnostic-" not in run.stdout:
            run.stdout = compiled.stdout + run.stdout
        said = [self.by_source(line) for line in run.stdout.splitlines() if not REMARK.match(line)]
        if (run.returncode or compiled.returncode) and not said:
            said = [f"{CLANG_TIDY} ended with status {run.returncode} in " + " ".join(self.sources)]
        return "\n".join(said)

    def tidy(self, checks=None, *flags):
        return subprocess.run([CLANG_TIDY, "--quiet", *([checks] if checks else []), str(self.path), "--",
                               *self.flags, *flags],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def by_source(self, text):
        def place(match):
            if match["file"] != str(self.path):
                return os.path.relpath(match["file"]) + f":{match['line']}:"
            source, line = self.source_at(int(match["line"]))
            return f"{os.path.relpath(source)}:{line}:"

        return PLACE.sub(place, text)


def without_headers(lines, headers):
    """A source whose headers come into a common list, and leave their lines empty."""
    own = set()
    for at, line in enumerate(lines):
        if INCLUDE.match(line) and line not in own:
            own.add(line)
            headers[line] = True
            lines[at] = ""
    return lines


def apart(lines, number):
    """A source all of which is in a namespace without a name, such as a test, gets a namespace of its own around it."""
    opened = [at for at, line in enumerate(lines) if line.startswith("namespace ")]
    closed = [at for at, line in enumerate(lines) if line.startswith("}  // namespace")]
    if len(opened) == 1 and lines[opened[0]] == "namespace {" and not "".join(lines[closed[0] + 1:]):
        lines[opened[0]] = f"namespace alone_{number} {{ namespace {{"
        lines[closed[0]] = "} }"
    return lines


def batches(build, sources):
    """Yields where a batch comes to lie, its sources, and how they are compiled."""
    known = compile_flags(build)
    alike = {}
    for source in map(os.path.realpath, sources):
        if source not in known:
            sys.exit(f"{os.path.relpath(source)} is not compiled in {build}")
        alike.setdefault((os.path.dirname(source), tuple(known[source])), []).append(source)
    for number, ((directory, flags), members) in enumerate(alike.items()):
        folder = (build / "together" / os.path.relpath(directory)).absolute()
        folder.mkdir(parents=True, exist_ok=True)
        for above in (directory, os.path.dirname(directory)):
            if above != os.getcwd() and os.path.exists(settings := os.path.join(above, ".clang-tidy")):
                shutil.copy(settings, folder)
                break
        parts = -(-len(members) // TOGETHER)
        for part in range(parts):
            yield folder / f"{number}_{part}.cpp", members[part::parts], flags


def checked(path, sources, flags):
    """Checks sources, those that can stand together; returns what was found, and those left to be checked."""
    batch = Batch(path, sources, flags)
    twice, others = batch.conflicts()
    if twice:
        batch = Batch(path, sources, flags, twice)
        more, others = batch.conflicts()
        others |= {source for source, _ in more}
    left = [source for source in sources[1:] if source in others]
    if left:
        batch = Batch(path, [source for source in sources if source not in left], flags, twice)
    return batch.check(), left


def main():
    build = pathlib.Path(sys.argv[1])
    found = False
    with concurrent.futures.ThreadPoolExecutor(int(os.environ.get("JOBS", os.cpu_count()))) as pool:
        waiting = {pool.submit(checked, *batch): batch for batch in batches(build, sys.argv[2:])}
        while waiting:
            done, _ = concurrent.futures.wait(waiting, return_when=concurrent.futures.FIRST_COMPLETED)
            for run in done:
                path, _, flags = waiting.pop(run)
                said, left = run.result()
                if said:
                    found = True
                    print(said, flush=True)
                if left:
                    batch = (path.with_name("more_" + path.name), left, flags)
                    waiting[pool.submit(checked, *batch)] = batch
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
