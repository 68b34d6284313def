#!/usr/bin/env python3
"""doxygen_filter.py HEADER: prints the header as doxygen is to read it; the Doxyfile names this script.

Headers are written for people: plain comments, and macros that declare attributes. Here comments that stand right before
a declaration, or behind it on its line, become documentation; the first one of a file, when a blank line follows it,
becomes that of the file; and the declaring macros are written out as the members that they make. Lines keep their
numbers, so that warnings name the right ones.
"""

import re
import sys

DECLARING = re.compile(
    r"^\s*VANE_(ENTITY|STATE_MACHINE|VALUE|VALUE_UNORDERED|WRAPPER_VALUE|RANGE_VALUE|ENUM|FACTORY|ENTITY_FACTORY"
    r"|REACTOR|REACTOR_RW|REACTORS|CONSTRUCTOR_PARAMS|OPERATIONS)\(")
COMMENT = re.compile(r"^(\s*)//(?!/)(.*)$")
RULER = re.compile(r"^\s*//\s*-{5}")


def split_comment(line):
    """The code of a line and the text behind it; None where there is none."""
    quoted = None
    at = 0
    while at < len(line):
        char = line[at]
        if quoted:
            if char == "\\":
                at += 1
            elif char == quoted:
                quoted = None
        elif char == '"' or (char == "'" and not (at and line[at - 1].isalnum())):
            quoted = char
        elif line.startswith("//", at):
            return line[:at].rstrip(), line[at + 2:].strip()
        at += 1
    return line.rstrip(), None


def arguments(text):
    """The arguments of a macro call, split at the commas outside of brackets and texts."""
    parts, depth, part, quoted = [], 0, "", False
    for at, char in enumerate(text):
        if char == '"' and text[at - 1:at] != "\\":
            quoted = not quoted
        if not quoted:
            arrow = char == ">" and text[at - 1:at] == "-"
            depth += (char in "(<{") - (char in ")>}" and not arrow)
            if char == "," and depth == 0:
                parts.append(part.strip())
                part = ""
                continue
        part += char
    if part.strip():
        parts.append(part.strip())
    return parts


def plain(text):
    """Text that doxygen takes as it is."""
    text = re.sub(r"([\\@<>#%&$`])", r"\\\1", text)
    text = re.sub(r"(?<![\w ])\*|\*(?![\w])(?<! \w\*)", r"\\*", text) if text.count("*") % 2 else text
    return re.sub(r"(?<![\w\\])::", r"\\::", text)


def doc(text, declaration):
    return f"/** {text} */ {declaration} "


def keyed(key, foo, what):
    each = f"foo(key) of one member after the other".replace("foo", foo)
    return (doc(f"Whether {what} has the key.", f"bool {foo}Has(const {key}& key) const;") +
            doc(f"The number of members of {what}.", f"std::size_t {foo}Count() const;") +
            doc(f"The members of {what}, for range-for; it may be written meanwhile.", f"auto {foo}All() const;") +
            doc(f"Takes the member away; tells the watchers when there was one.", f"void {foo}Del(const {key}& key);") +
            doc(f"Takes every member away: {each} is told.", f"void {foo}DelAll();") +
            doc("Tells the watchers of the member without a change.", f"void {foo}Notify(const {key}& key) const;") +
            doc("Asks every watcher to look at all members.", f"void {foo}Notify() const;"))


def attribute(text, note):
    kind, _, rest = text.partition("(")
    parts = arguments(rest.rstrip()[:-1])
    said = plain(note[:1].upper() + note[1:] + ("" if note.endswith(".") else ".")) + " " if note else ""
    if kind == "CONST":
        return doc(said + "Fixed by the constructor.", f"{parts[0]} {parts[1]}() const;")
    if kind == "SCALAR":
        value, foo, first = parts[0], parts[1], ", ".join(parts[3:])
        return (doc(said + "At first " + plain(first) + ".", f"{value} {foo}() const;") +
                doc(f"Writes {foo}; tells the watchers when that changes it.", f"void {foo}Is({value} value);") +
                doc(f"Tells the watchers of {foo} without a change.", f"void {foo}Notify() const;"))
    if kind == "PTR":
        value, foo = parts[0], parts[1]
        return (doc(said + "Null at first.", f"Vane::Ptr<{value}> {foo}() const;") +
                doc(f"Writes {foo}; tells the watchers when that changes it.",
                    f"void {foo}Is(const Vane::Ptr<{value}>& pointer);") +
                doc(f"The same with null.", f"void {foo}Del();") +
                doc(f"Tells the watchers of {foo} without a change.", f"void {foo}Notify() const;"))
    if kind in ("MAP", "SET", "ORDERED_MAP"):
        key = parts[0]
        value, foo = ("bool", parts[1]) if kind == "SET" else (parts[1], parts[2])
        order = ", in ascending order of keys" if kind.startswith("ORDERED") else ""
        return (doc(said + f"The value of a key{order}; the default value when it is absent.",
                    f"{value} {foo}(const {key}& key) const;") +
                doc("The value of a key where it stands, or null; until the next write.",
                    f"const {value}* {foo}Find(const {key}& key) const;") +
                doc("Writes a member; tells the watchers when that changes it.",
                    f"void {foo}Is(const {key}& key, {value} value);") + keyed(key, foo, foo))
    if kind in ("CHILDREN", "ORDERED_CHILDREN"):
        key, child, foo = parts[:3]
        return (doc(said + "The child of a key, or null.", f"Vane::Ptr<{child}> {foo}(const {key}& key) const;") +
                doc("Answers the child of a key, made with these arguments when there is none yet.",
                    f"template <typename... Args> Vane::Ptr<{child}> {foo}Is(const {key}& key, const Args&... args);") +
                keyed(key, foo, foo))
    raise ValueError(f"unknown kind of attribute: {text}")


def number(cls, value, first, limits=""):
    return (f"class {cls} {{ public: " + doc(f"The number {plain(first)}.", f"{cls}() = default;") +
            doc("Of a number" + limits + ".", f"explicit {cls}({value} value);") +
            doc("Consumes one number of a text; raises Vane::ParseException.",
                f"{cls}(Vane::StrepIter& at, const Vane::StrepIter& end);") +
            doc("The number.", f"{value} value() const;") +
            doc("A hash, the same on every machine.", "Vane::U32 hash() const;") + "};")


def fields(cls, parts):
    made = doc("Every field has its default.", f"{cls}() = default;")
    names = []
    for part in parts:
        value, name = arguments(part[1:-1])[:2]
        names.append(f"{value} {name}")
    made += doc("Of its fields.", f"explicit {cls}({', '.join(names)});")
    for part in parts:
        value, name, *first = arguments(part[1:-1])
        made += (doc("At first " + plain(", ".join(first)) + ".", f"{value} {name}() const;") +
                 doc(f"Writes {name}.", f"void {name}Is({value} value);"))
    return made + doc("A hash of all fields, the same on every machine.", "Vane::U32 hash() const;")


def expanded(name, parts, notes):
    if name in ("ENTITY", "STATE_MACHINE"):
        return "".join(attribute(part, notes.get(part, "")) for part in parts[3:])
    if name in ("VALUE", "VALUE_UNORDERED"):
        return fields(parts[1], parts[2:])
    if name == "WRAPPER_VALUE":
        return number(parts[1], parts[2], parts[3])
    if name == "RANGE_VALUE":
        return number(parts[1], parts[2], parts[5],
                      plain(f" from {parts[3]} to {parts[4]}; raises Vane::RangeException for others"))
    if name == "ENUM":
        items = [arguments(part[1:-1]) for part in parts[2:]]
        return (f"enum {parts[1]} : unsigned {{ " +
                ", ".join(f"{item} = {value} /**< {value} */" for item, value in items) + " };")
    if name in ("FACTORY", "ENTITY_FACTORY"):
        return doc(f"Makes a {parts[0]}, finished and held.",
                   f"template <typename... Args> Vane::Ptr<{parts[0]}> {parts[1]}(Args&&... args);")
    if name in ("REACTOR", "REACTOR_RW"):
        watched, foo = parts[1] + ("" if name.endswith("RW") else " const"), parts[2]
        return (doc("The entity that is watched, or null.", f"Vane::Ptr<{watched}> {foo}() const;") +
                doc("Watches it: looks at all of it, then at what changes.",
                    f"void {foo}Is(const Vane::Ptr<{watched}>& watched);") +
                doc("Stops watching.", f"void {foo}Del();"))
    return ""


def expand_macros(lines):
    """Writes declaring macros out, on their first line. Answers the numbers of the lines that were taken."""
    taken = set()
    at = 0
    while at < len(lines):
        found = DECLARING.match(lines[at])
        if not found:
            at += 1
            continue
        text, notes, pending, depth, end = "", {}, "", 0, at
        while True:
            code, comment = split_comment(lines[end])
            text += " " + code.strip()
            depth = text.count("(") - text.count(")")
            inner = arguments(text[text.index("(") + 1:] if depth else text[text.index("(") + 1:text.rindex(")")])
            if comment is not None and not code.strip():
                pending += " " + comment
            elif inner:
                if pending:
                    notes[inner[-1]] = pending.strip()
                    pending = ""
                if comment is not None:
                    notes[inner[-1]] = comment
            if depth == 0:
                break
            end += 1
        body = text[text.index("(") + 1:text.rindex(")")]
        behind = text[text.rindex(")") + 1:]
        whole = comment is not None and found.group(1) not in ("ENTITY", "STATE_MACHINE")
        lines[at] = (f"/** {plain(comment)} */ " if whole else "") + expanded(found.group(1), arguments(body), notes) + behind
        for number_ in range(at + 1, end + 1):
            lines[number_] = ""
        taken.update(range(at, end + 1))
        at = end + 1
    return taken


def drop_macros(lines):
    """Macros are no part of the reference; what declares by them is written out. Constraints confuse doxygen."""
    lines[:] = [re.sub(r"\) const requires [^{;]*(?=[{;])", ") const ", line) for line in lines]
    at = 0
    while at < len(lines):
        if re.match(r"\s*#\s*define\b", lines[at]):
            while lines[at].rstrip().endswith("\\"):
                lines[at] = ""
                at += 1
            lines[at] = ""
        at += 1


def document(block):
    """A block of comment lines as documentation; what is indented stays as it stands."""
    texts = [COMMENT.match(line).group(1, 2) for line in block]
    drawn = [text.startswith("  ") for _, text in texts]
    for at in range(1, len(texts) - 1):
        if not texts[at][1].strip():
            drawn[at] = drawn[at - 1] and drawn[at + 1]
    made = []
    for at, (indent, text) in enumerate(texts):
        if not drawn[at]:
            made.append(indent + "///" + plain(text))
            continue
        opens = "" if at and drawn[at - 1] else " @code{.unparsed}"
        closes = "" if at + 1 < len(texts) and drawn[at + 1] else " @endcode"
        made.append(indent + "///" + opens + text + closes)
    return made


def group(lines, first, at, taken):
    """A comment holds for all declarations beneath it, up to a blank line, the next comment or a plain accessor."""
    members = 0
    last = None
    depth = 0
    while at < len(lines) and at not in taken and lines[at].strip() and not COMMENT.match(lines[at]):
        code = split_comment(lines[at])[0]
        if depth == 0 and re.match(r"\s*(}|public:|protected:|private:|#|namespace\b|class\b|struct\b|enum\b|friend class)", code):
            break
        # What says itself is not explained by the comment above it.
        if depth == 0 and members and re.search(r"\w+\(\) const( noexcept)? {|~\w+\(|= delete;|= default;|operator", code):
            break
        depth += code.count("(") + code.count("{") - code.count(")") - code.count("}")
        if depth == 0 and code.rstrip().endswith((";", "}")):
            members += 1
            last = at
        at += 1
    if members > 1:
        lines[first] = "/**@{*/ " + lines[first].lstrip()
        # Behind a comment to the end of the line there is no room.
        code, comment = split_comment(lines[last])
        lines[last] = code + " /**@}*/" + ("" if comment is None else " // " + comment)


def document_comments(lines, taken):
    scopes = []  # "scope" or "body" for each open brace
    statement = ""
    file_documented = False
    trailing = None  # column of the comment behind the code of the last line
    at = 0
    while at < len(lines):
        line = lines[at]
        if at in taken or not line.strip() or line.lstrip().startswith("#"):
            trailing = None
            at += 1
            continue
        if COMMENT.match(line):
            end = at
            while end < len(lines) and COMMENT.match(lines[end]):
                end += 1
            column = len(line) - len(line.lstrip())
            if "body" in scopes or RULER.match(line):
                pass
            elif trailing is not None and column >= trailing:
                for number_ in range(at, end):
                    lines[number_] = re.sub(r"//(.*)$", lambda text: "///<" + plain(text.group(1)), lines[number_])
            elif end < len(lines) and lines[end].strip():
                lines[at:end] = document(lines[at:end])
                group(lines, at, end, taken)
            elif not file_documented and not scopes and at > 0 and not lines[at - 1].strip():
                lines[at - 1] = "/// @file"
                lines[at:end] = document(lines[at:end])
            file_documented = file_documented or not scopes
            trailing = None if trailing is None or column < trailing else trailing
            at = end
            continue
        code, comment = split_comment(line)
        trailing = None
        opens_scope = code.endswith("{") and not re.match(r"\s*(namespace|extern)\b", code)
        # An enumeration on one line, or a function with its body: doxygen wants the text before them.
        whole = re.match(r"\s*enum\b.*};$", code) or re.search(r"{.*}$", code)
        if comment is not None and "body" not in scopes and (opens_scope or whole):
            lines[at] = doc(plain(comment), code.strip())
        elif comment is not None and "body" not in scopes and re.sub(r" /\*\*@}\*/$", "", code).rstrip()[-1:] in (";", ",") or (
                comment is not None and "body" not in scopes and re.match(r"\s*\w+( = [^{]*)?$", code)):
            trailing = line.index("//", len(code)) - 4
            if code.endswith("/**@}*/"):
                lines[at] = code[:-7] + "/**< " + plain(comment) + " */ /**@}*/"
            else:
                lines[at] = code + " ///< " + plain(comment)
        for char in re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])\'', "", code):
            if char == "{":
                opens = re.search(r"\b(namespace|class|struct|enum|union|extern)\b", statement)
                scopes.append("scope" if opens and not re.search(r"\)\s*(const|noexcept|override)*\s*$", statement)
                              else "body")
                statement = ""
            elif char == "}":
                if scopes:
                    scopes.pop()
                statement = ""
            elif char == ";":
                statement = ""
            else:
                statement += char
        statement += " "
        at += 1


def main():
    with open(sys.argv[1], encoding="utf-8") as stream:
        lines = stream.read().split("\n")
    drop_macros(lines)
    taken = expand_macros(lines)
    document_comments(lines, taken)
    print("\n".join(lines))


if __name__ == "__main__":
    main()
