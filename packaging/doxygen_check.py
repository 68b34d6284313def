#!/usr/bin/env python3
"""doxygen_check.py WARNINGS [--strict]: prints what of doxygen's warnings counts, and ends with 1 when there is some.

Declarations without words of their own are named with --strict and counted otherwise; all else counts. Not even counted
are members whose name and type say all: accessors (`foo() const`, `fooIs`, `fooDel`), constructors, operators, handlers
of state machines, fields of plain records, types that a class renames, and what only the declaring macros call.
"""

import re
import sys

UNDOCUMENTED = re.compile(r"Member (.*?) \((\w+)\) of (\w+) (.*) is not documented\.")
PLAIN = [
    r"\w+\(\) (const)?( noexcept)?( ?= ?0)?( ?override)?",  # accessors
    r"\w+(Is|Del|DelAll)\(.*",
    r"(operator|~).*",
    r"(on|handle)[A-Z]?\w*\(.*",
    r"(swap|begin|end|body|find|has|byte|contains)\(.*",
    r"(portConfig|portVlan|egress)\(\)",
    r"vane\w*\(.*",
]
# Called by the macros of Vane/Entity.h, Vane/Type.h, Vane/Value.h, Vane/Notification.h and Vane/Trace.h alone.
MACHINERY = {
    "constructorParam", "constructorParamsCheck", "throwReinstantiation", "notifyKeyed", "notifyPlain", "wanted",
    "throwWrongArgument", "addOperationAs", "addOperation", "parseField", "push", "deliverTo", "Of"
}
# Its class says it.
SAID_OF_CLASS = {"XpXdk::xpAcmMgr::readCounter", "XpXdk::xpEgressBdEvifMgr::writeEntry"}


def counts(warning):
    if "Compound Vane::MemberClass<" in warning:
        return False
    found = UNDOCUMENTED.search(warning)
    if not found:
        return True
    member, kind, scope, owner = found.groups()
    name = re.split(r"\(|=", member)[0].strip()
    if name in MACHINERY or f"{owner}::{name}" in SAID_OF_CLASS:
        return False
    if scope == "namespace":
        return True
    if kind in ("variable", "typedef", "friend"):
        return False
    simple = re.sub(r"<.*", "", owner).rstrip().split("::")[-1]
    # Constructors, those of the base too.
    return not name[0].isupper() and name != simple and not any(re.fullmatch(form, member.strip()) for form in PLAIN)


def main():
    with open(sys.argv[1], encoding="utf-8") as stream:
        said = sorted({line.rstrip() for line in stream if line.strip() and counts(line)})
    if "--strict" not in sys.argv:
        silent = [line for line in said if line.endswith("is not documented.")]
        said = [line for line in said if not line.endswith("is not documented.")]
        if silent:
            print(f"{len(silent)} declarations are explained by those around them alone; --strict names them")
    print("\n".join(said), end="\n" if said else "")
    return 1 if said else 0


if __name__ == "__main__":
    sys.exit(main())
