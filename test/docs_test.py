#!/usr/bin/env python3
"""docs_test.py XPACL SOURCE [DOCUMENT...]: runs every command line that the documents show and compares what it says.

A document is README.md or docs/*.md. In its indented and fenced blocks a line that begins with "$ " is run by bash in a
scratch folder of the document's own, which holds a copy of examples/; what stands beneath, up to the next "$ " or
"== " line or the end of the block, is what it must print (standard output and error together).

    ...                 stands for any lines that the document leaves out
    <!-- run: COMMAND --> outside of blocks: run it at this place, in the same folder, without comparing
    <!-- file: NAME     outside of blocks, up to a line "-->": writes these lines to the file at this place
    <!-- status: N -->  before a block: its last command ends with this status (else any of 0 and 1)

Figures that vary between machines are compared as words, by the table VARYING below and nowhere else.
--update writes what the commands say now into the documents (where no "..." stands); read the difference.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

VARYING = [
    (re.compile(r"\b[0-9]+(\.[0-9]+)? (ms|s|us)\b"), "TIME"),
    (re.compile(r"\b[0-9]+(\.[0-9]+)? [KMG]iB\b"), "MEMORY"),
]

FILE = re.compile(r"^<!-- file: ([^ ]+)$")
RUN = re.compile(r"^<!-- run: (.*) -->$")
STATUS = re.compile(r"^<!-- status: ([0-9]+) -->$")


def comparable(line):
    for pattern, word in VARYING:
        line = pattern.sub(word, line)
    # Trailing blanks are invisible in a document.
    return line.rstrip()


class Step:
    """One command of a document, and what is shown beneath it."""

    def __init__(self, line, command, compared=True):
        self.line = line
        self.command = command
        self.compared = compared
        self.first = self.last = line + 1  # of the output, counted from 0, the last one excluded
        self.indent = ""
        self.shown = []
        self.status = None
        self.file = None  # to write instead of running a command
        self.content = []


def continued(command):
    return command.endswith("\\")


def steps_of(text):
    steps = []
    step = None
    fence = None
    status = None
    blank_before = True
    block = False
    file = None
    for number, line in enumerate(text):
        body = None
        if file is not None:
            if line == "-->":
                file = None
            else:
                file.content.append(line)
            continue
        if fence is not None:
            if line.strip() == fence:
                fence = step = None
                continue
            body, indent = line, ""
        elif line.startswith("```"):
            fence, step = "```", None
            continue
        elif line.startswith("    ") and (block or blank_before):
            body, indent, block = line[4:], "    ", True
        elif not line and block:
            body, indent = "", "    "
        if body is None:
            step = None
            found = RUN.match(line)
            if found:
                steps.append(Step(number, found.group(1), compared=False))
            found = FILE.match(line)
            if found:
                file = Step(number, "", compared=False)
                file.file = found.group(1)
                steps.append(file)
            found = STATUS.match(line)
            status = int(found.group(1)) if found else status
            blank_before = not line or found is not None
            block = False
            continue
        blank_before = not line
        if step is not None and continued(step.command):
            step.command = step.command[:-1] + body.lstrip()
            step.first = step.last = number + 1
        elif body.startswith("$ "):
            step = Step(number, body[2:])
            step.indent, step.status, status = indent, status, None
            steps.append(step)
        elif body.startswith("== "):
            step = None
        elif step is not None:
            step.shown.append(body)
            if body:
                step.last = number + 1
    for step in steps:
        while step.shown and not step.shown[-1]:
            step.shown.pop()
    return steps


def matches(shown, said):
    """Whether `said` is `shown`, where "..." in `shown` stands for any lines."""
    places = {0}
    for line in shown:
        if line.strip() == "...":
            places = set(range(min(places), len(said) + 1)) if places else places
        else:
            want = comparable(line)
            places = {at + 1 for at in places if at < len(said) and comparable(said[at]) == want}
    return len(said) in places


def run_document(xpacl, source, path, update):
    with open(path, encoding="utf-8") as stream:
        text = stream.read().split("\n")
    faults = compared = 0
    changes = []
    with tempfile.TemporaryDirectory() as folder:
        shutil.copytree(os.path.join(source, "examples"), os.path.join(folder, "examples"))
        os.mkdir(os.path.join(folder, ".bin"))
        os.symlink(xpacl, os.path.join(folder, ".bin", "xpacl"))
        environment = dict(os.environ, NO_COLOR="1", LC_ALL="C", TMPDIR=folder)
        # docs/embedding.md runs the programs of examples/embedding, which the same build has made.
        programs = os.path.join(os.path.dirname(xpacl), "..", "examples", "embedding")
        environment["PATH"] = os.path.join(folder, ".bin") + ":" + programs + ":" + environment["PATH"]
        for step in steps_of(text):
            if step.file is not None:
                with open(os.path.join(folder, step.file), "w", encoding="utf-8") as stream:
                    stream.write("\n".join(step.content) + "\n")
                continue
            done = subprocess.run(["bash", "-c", step.command], cwd=folder, env=environment, timeout=120,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            said = done.stdout.decode("utf-8", "replace").split("\n")
            while said and not said[-1]:
                said.pop()
            place = f"{os.path.relpath(path, source)}:{step.line + 1}: $ {step.command}"
            wanted = (0,) if not step.compared else (0, 1) if step.status is None else (step.status,)
            if done.returncode not in wanted:
                faults += 1
                print(f"{place}\n  ended with status {done.returncode}\n  " + "\n  ".join(said))
            elif step.compared:
                compared += 1
                if not matches(step.shown, said):
                    if update and "..." not in [line.strip() for line in step.shown]:
                        changes.append((step, said))
                        continue
                    faults += 1
                    print(place + "\n  shown:\n    " + "\n    ".join(step.shown) + "\n  says now:\n    " +
                          "\n    ".join(said))
    for step, said in reversed(changes):
        text[step.first:step.last] = [(step.indent + line).rstrip() for line in said]
    if changes:
        with open(path, "w", encoding="utf-8") as stream:
            stream.write("\n".join(text))
    return compared, faults


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--update"]
    xpacl, source = os.path.abspath(arguments[0]), os.path.abspath(arguments[1])
    docs = os.path.join(source, "docs")
    documents = arguments[2:] or [os.path.join(source, "README.md")] + sorted(
        os.path.join(docs, name) for name in os.listdir(docs) if name.endswith(".md"))
    compared = faults = 0
    for path in documents:
        one = run_document(xpacl, source, path, "--update" in sys.argv)
        compared += one[0]
        faults += one[1]
    print(f"{compared} commands run and compared, {faults} of all wrong")
    return 1 if faults or not compared else 0


if __name__ == "__main__":
    sys.exit(main())
