#!/usr/bin/env python3
"""Keeps the administrator's documentation true.

    check_docs.py --root REPOSITORY --bin FOLDER_OF_THE_TOOLS

- Every relative link of README.md, ARCHITECTURE.md and docs/*.md leads to a
  file that exists, and an anchor to a heading of it; every docs/ file that
  one of them names, and every page a docs/ page names, exists.
- Every command in a docs/ page's code block marked ```sh or ```bash runs,
  on copies of examples/ and docs/ in a scratch folder, with the tools of
  FOLDER first on PATH, and ends with its exit status: 0, or the N of a
  trailing "# exit status N". The commands of one page share the folder, in
  the page's order. A ```text block that follows such a block with no more
  than a line of prose between them quotes the output of its last command:
  each of its lines stands in that output, in that order.
- Every Event Forwarding subscription in docs/ is a file that wecutil cs
  takes: well-formed, with the fields it needs in the order of its schema,
  and the query Event Viewer writes for the source Zandolin and the
  identifiers 20001 and 20002 of the Application log.

Prints one line per failure and "N passed, N failed" at the end; the exit
status is 1 when anything failed.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

COMMAND_TIMEOUT = 300

results = {"passed": 0, "failed": 0}


def check(ok, message):
    if ok:
        results["passed"] += 1
    else:
        results["failed"] += 1
        print("FAILED: " + message)


def read(path):
    with open(path, encoding="utf-8") as f:
        return f.read()


def without_code(text):
    """The text with fenced blocks, indented blocks and code spans blanked."""
    text = re.sub(r"^```.*?^```", "", text, flags=re.S | re.M)
    text = re.sub(r"^(?: {4}|\t).*$", "", text, flags=re.M)
    return re.sub(r"`[^`\n]*`", "", text)


def slug(heading):
    """The anchor a heading gets: lower case, punctuation dropped, blanks
    as hyphens."""
    text = heading.strip().lower()
    text = re.sub(r"[^\w\- ]", "", text)
    return text.replace(" ", "-")


def anchors(path):
    found = set()
    seen = {}
    for line in without_fences(read(path)).splitlines():
        m = re.match(r"^#{1,6}\s+(.*?)\s*#*\s*$", line)
        if not m:
            continue
        base = slug(m.group(1))
        count = seen.get(base, 0)
        seen[base] = count + 1
        found.add(base if count == 0 else "%s-%d" % (base, count))
    return found


def without_fences(text):
    return re.sub(r"^```.*?^```", "", text, flags=re.S | re.M)


def check_links(root, pages):
    for page in pages:
        rel = os.path.relpath(page, root)
        text = without_code(read(page))
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"^[a-z]+:", target):
                continue
            path, _, anchor = target.partition("#")
            where = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
            exists = os.path.exists(where)
            check(exists, "%s: link to %s, which does not exist" % (rel, target))
            if exists and anchor and where.endswith(".md"):
                check(anchor in anchors(where),
                      "%s: link to %s, which has no heading for #%s" % (rel, target, anchor))


def check_names(root, pages):
    """docs/ files named anywhere in a page, and pages named in docs/."""
    for page in pages:
        rel = os.path.relpath(page, root)
        text = read(page)
        for name in re.findall(r"\bdocs/[\w./-]*[\w/]", text):
            check(os.path.exists(os.path.join(root, name)),
                  "%s names %s, which does not exist" % (rel, name))
        if rel.startswith("docs" + os.sep):
            for name in re.findall(r"(?<![\w/.-])([\w-]+\.(?:md|xml))\b", text):
                check(os.path.exists(os.path.join(root, "docs", name))
                      or os.path.exists(os.path.join(root, name)),
                      "%s names %s, which is neither in docs/ nor at the top" % (rel, name))


def fenced_blocks(text):
    """Each fenced block: its language, its body, and the prose before it."""
    blocks = []
    last_end = 0
    for m in re.finditer(r"^```([\w-]*)[ \t]*\n(.*?)^```[ \t]*$", text, flags=re.S | re.M):
        blocks.append((m.group(1), m.group(2), text[last_end:m.start()]))
        last_end = m.end()
    return blocks


def shell_commands(body):
    """The commands of a shell block, with their expected exit status."""
    commands = []
    pending = ""
    for line in body.splitlines():
        if line.rstrip().endswith("\\"):
            pending += line.rstrip()[:-1] + " "
            continue
        line = pending + line
        pending = ""
        if not line.strip() or line.lstrip().startswith("#"):
            continue
        status = 0
        m = re.search(r"\s#\s*exit status (\d+)\s*$", line)
        if m:
            status = int(m.group(1))
            line = line[: m.start()]
        commands.append((line.strip(), status))
    return commands


def run(command, scratch, env):
    try:
        done = subprocess.run(["bash", "-c", "set -o pipefail; " + command], cwd=scratch,
                              env=env, capture_output=True, text=True,
                              timeout=COMMAND_TIMEOUT)
        return done.returncode, done.stdout + done.stderr
    except subprocess.TimeoutExpired:
        return "none (still running after %d s)" % COMMAND_TIMEOUT, ""


def quoted_in(quote, output):
    """Whether every line of quote stands in output, in order."""
    lines = [line.strip() for line in output.splitlines()]
    at = 0
    for wanted in (line.strip() for line in quote.splitlines()):
        if not wanted:
            continue
        while at < len(lines) and lines[at] != wanted:
            at += 1
        if at == len(lines):
            return False, wanted
        at += 1
    return True, None


def check_commands(root, tools, docs_pages):
    env = dict(os.environ)
    env["PATH"] = tools + os.pathsep + env.get("PATH", "")
    for page in docs_pages:
        rel = os.path.relpath(page, root)
        blocks = fenced_blocks(read(page))
        if not any(language in ("sh", "bash") for language, _, _ in blocks):
            continue
        scratch = tempfile.mkdtemp(prefix="zandolin-docs-")
        try:
            for folder in ("examples", "docs"):
                shutil.copytree(os.path.join(root, folder), os.path.join(scratch, folder))
            last = None
            for language, body, prose in blocks:
                if language == "text" and last is not None and len(prose.strip()) <= 200:
                    command, output = last
                    found, missing = quoted_in(body, output)
                    check(found, "%s: the output of `%s` does not hold the quoted line %r" %
                          (rel, command, missing))
                last = None
                if language not in ("sh", "bash"):
                    continue
                for command, status in shell_commands(body):
                    code, output = run(command, scratch, env)
                    check(code == status, "%s: `%s` exit status %s, expected %d\n%s" %
                          (rel, command, code, status, output[-2000:]))
                    last = (command, output)
        finally:
            shutil.rmtree(scratch, ignore_errors=True)


SUBSCRIPTION_NS = "http://schemas.microsoft.com/2006/03/windows/events/subscription"
# The elements of a subscription, in the order of its schema.
SUBSCRIPTION_ORDER = [
    "SubscriptionId", "SubscriptionType", "Description", "Enabled", "Uri",
    "ConfigurationMode", "Delivery", "Expires", "Query", "ReadExistingEvents",
    "TransportName", "TransportPort", "ContentFormat", "Locale", "LogFile",
    "PublisherName", "CredentialsType", "EventSources",
    "AllowedSourceNonDomainComputers", "AllowedSourceDomainComputers",
]
EVENT_VIEWER_SELECT = ("*[System[Provider[@Name='Zandolin'] and "
                       "(EventID=20001 or EventID=20002)]]")


def check_subscription(root, path):
    rel = os.path.relpath(path, root)
    try:
        tree = ET.parse(path)
    except ET.ParseError as e:
        check(False, "%s is not well-formed XML: %s" % (rel, e))
        return
    top = tree.getroot()
    check(top.tag == "{%s}Subscription" % SUBSCRIPTION_NS,
          "%s: the root is %s, not a Subscription of the subscription schema" % (rel, top.tag))
    names = [child.tag.split("}")[-1] for child in top]
    unknown = [n for n in names if n not in SUBSCRIPTION_ORDER]
    check(not unknown, "%s: elements outside the schema: %s" % (rel, unknown))
    known = [n for n in names if n in SUBSCRIPTION_ORDER]
    check(known == sorted(known, key=SUBSCRIPTION_ORDER.index),
          "%s: elements out of the schema's order: %s" % (rel, names))
    check(len(names) == len(set(names)), "%s: an element stands twice" % rel)

    def text(name):
        element = top.find("{%s}%s" % (SUBSCRIPTION_NS, name))
        return None if element is None else (element.text or "").strip()

    required = ["SubscriptionId", "SubscriptionType", "Enabled", "Uri", "ConfigurationMode",
                "Query", "ReadExistingEvents", "TransportName", "ContentFormat", "LogFile"]
    for name in required:
        check(text(name), "%s: %s is missing or empty" % (rel, name))
    check(text("SubscriptionType") == "SourceInitiated",
          "%s: SubscriptionType is %s, not SourceInitiated" % (rel, text("SubscriptionType")))
    check(text("Enabled") in ("true", "false"), "%s: Enabled is not true or false" % rel)
    check(text("ReadExistingEvents") in ("true", "false"),
          "%s: ReadExistingEvents is not true or false" % rel)
    check(text("Uri") == "http://schemas.microsoft.com/wbem/wsman/1/windows/EventLog",
          "%s: Uri is not the event log's resource URI" % rel)
    mode = text("ConfigurationMode")
    check(mode in ("Normal", "Custom", "MinLatency", "MinBandwidth"),
          "%s: ConfigurationMode %s" % (rel, mode))
    delivery = top.find("{%s}Delivery" % SUBSCRIPTION_NS)
    check((delivery is not None) == (mode == "Custom"),
          "%s: delivery settings belong to ConfigurationMode Custom, and only to it" % rel)
    if delivery is not None:
        check(delivery.get("Mode") == "Push",
              "%s: a source-initiated subscription delivers by Push" % rel)
    check(text("TransportName") in ("http", "HTTP", "https", "HTTPS"),
          "%s: TransportName %s" % (rel, text("TransportName")))
    check(text("ContentFormat") in ("Events", "RenderedText"),
          "%s: ContentFormat %s" % (rel, text("ContentFormat")))
    locale = top.find("{%s}Locale" % SUBSCRIPTION_NS)
    check(locale is None or locale.get("Language"), "%s: Locale without Language" % rel)
    sddl = text("AllowedSourceDomainComputers")
    check(sddl and re.match(r"^O:\w+G:\w+D:(\(A;;GA;;;[^)]+\))+$", sddl),
          "%s: AllowedSourceDomainComputers is not an SDDL that grants sources" % rel)

    try:
        query = ET.fromstring(text("Query") or "")
    except ET.ParseError as e:
        check(False, "%s: the Query is not a well-formed QueryList: %s" % (rel, e))
        return
    check(query.tag == "QueryList", "%s: the Query holds %s, not a QueryList" % (rel, query.tag))
    selects = [(q.get("Id"), q.get("Path"), s.get("Path"), " ".join((s.text or "").split()))
               for q in query.findall("Query") for s in q.findall("Select")]
    check(selects == [("0", "Application", "Application", EVENT_VIEWER_SELECT)],
          "%s: the query is not Event Viewer's for source Zandolin, 20001 and 20002 of "
          "the Application log: %s" % (rel, selects))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", required=True)
    parser.add_argument("--bin", required=True)
    args = parser.parse_args()
    root = os.path.abspath(args.root)
    docs = os.path.join(root, "docs")
    docs_pages = sorted(os.path.join(docs, n) for n in os.listdir(docs) if n.endswith(".md"))
    pages = [os.path.join(root, "README.md"), os.path.join(root, "ARCHITECTURE.md")] + docs_pages

    check_links(root, pages)
    check_names(root, pages)
    subscriptions = [os.path.join(docs, n) for n in sorted(os.listdir(docs))
                     if n.endswith(".xml") and "<Subscription" in read(os.path.join(docs, n))]
    check(subscriptions, "docs/ holds no Event Forwarding subscription")
    for path in subscriptions:
        check_subscription(root, path)
    check_commands(root, os.path.abspath(args.bin), docs_pages)

    print("%d passed, %d failed" % (results["passed"], results["failed"]))
    return 1 if results["failed"] else 0


if __name__ == "__main__":
    sys.exit(main())
