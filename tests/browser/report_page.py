#!/usr/bin/env python3
"""Opens a zandolin-fleet report page in headless Chromium and checks it.

    report_page.py REPORT_DIR PICTURE.png

The counts the page shows must equal those computed here from fleet.csv;
the filter box and the "only" choice must show exactly the rows the CSV
says; a click on a client must open its detail. A picture of the page is
written to PICTURE.png for a person to look at. Chromium is driven over
its DevTools protocol on a pipe (--remote-debugging-pipe), so nothing but
Python's standard library and Debian's chromium is needed. Exit status 0
when every check passed; each failed check is printed.
"""
import base64
import csv
import fcntl
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time


class Browser:
    def __init__(self):
        exe = shutil.which("chromium") or shutil.which("chromium-browser")
        if not exe:
            raise SystemExit("report_page: chromium is not installed (scripts/install-deps.sh)")
        self.profile = tempfile.mkdtemp(prefix="zandolin-chromium-")
        # Chromium reads the protocol from fd 3 and writes to fd 4; the
        # pipe's ends are first put above those numbers.
        read_end, self.to_chrome = os.pipe()
        self.from_chrome, write_end = os.pipe()
        to_chrome_r = fcntl.fcntl(read_end, fcntl.F_DUPFD, 10)
        from_chrome_w = fcntl.fcntl(write_end, fcntl.F_DUPFD, 10)
        os.close(read_end)
        os.close(write_end)

        def child_fds():
            os.dup2(to_chrome_r, 3)
            os.dup2(from_chrome_w, 4)

        self.process = subprocess.Popen(
            [exe, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--user-data-dir=" + self.profile, "--remote-debugging-pipe", "about:blank"],
            pass_fds=(3, 4, to_chrome_r, from_chrome_w), preexec_fn=child_fds,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_chrome_r)
        os.close(from_chrome_w)
        self.buffer = b""
        self.next_id = 0
        self.session = None

    def call(self, method, params=None, session=True):
        self.next_id += 1
        message = {"id": self.next_id, "method": method, "params": params or {}}
        if session and self.session:
            message["sessionId"] = self.session
        os.write(self.to_chrome, json.dumps(message).encode() + b"\0")
        while True:
            while b"\0" not in self.buffer:
                chunk = os.read(self.from_chrome, 1 << 20)
                if not chunk:
                    raise RuntimeError("chromium closed the pipe")
                self.buffer += chunk
            raw, self.buffer = self.buffer.split(b"\0", 1)
            reply = json.loads(raw)
            if reply.get("id") == self.next_id:
                if "error" in reply:
                    raise RuntimeError(f"{method}: {reply['error']}")
                return reply.get("result", {})

    def open(self, url):
        target = self.call("Target.createTarget", {"url": "about:blank"}, session=False)["targetId"]
        self.session = self.call("Target.attachToTarget", {"targetId": target, "flatten": True},
                                 session=False)["sessionId"]
        self.call("Emulation.setDeviceMetricsOverride",
                  {"width": 1400, "height": 1100, "deviceScaleFactor": 1, "mobile": False})
        self.call("Page.navigate", {"url": url})
        deadline = time.time() + 30
        while time.time() < deadline:
            if self.eval("document.readyState === 'complete' && !!document.getElementById('shown') "
                         "&& document.getElementById('shown').textContent !== ''"):
                return
            time.sleep(0.1)
        raise RuntimeError("the page did not finish loading")

    def eval(self, expression):
        result = self.call("Runtime.evaluate", {"expression": expression, "returnByValue": True})
        if "exceptionDetails" in result:
            raise RuntimeError(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def picture(self, path):
        data = self.call("Page.captureScreenshot", {"format": "png", "captureBeyondViewport": False})["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(data))

    def close(self):
        try:
            self.call("Browser.close", session=False)
        except Exception:
            pass
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.profile, ignore_errors=True)


def counts_from_csv(rows):
    def n(row, key):
        return int(row[key] or 0)

    at_risk_runs = {"INI file not loaded", "directory query failed", "no INI file found"}
    return {
        "clients": len(rows),
        "printersMoved": sum(n(r, "movedCount") for r in rows),
        "clientsMoved": sum(1 for r in rows if n(r, "movedCount") > 0),
        "atRisk": sum(1 for r in rows if n(r, "failedAddsCount") or n(r, "lostCount") or r["defaultLost"] == "yes"
                      or r["ended"] in ("stuck", "fatal") or r["run"] in at_risk_runs),
        "failedAdds": sum(n(r, "failedAddsCount") for r in rows),
        "lostPrinters": sum(n(r, "lostCount") for r in rows),
        "lostDefaults": sum(1 for r in rows if r["defaultLost"] == "yes"),
        "stuck": sum(1 for r in rows if r["ended"] == "stuck"),
        "fatal": sum(1 for r in rows if r["ended"] == "fatal"),
    }


def main():
    if len(sys.argv) != 3:
        raise SystemExit(__doc__)
    report = pathlib.Path(sys.argv[1]).resolve()
    with open(report / "fleet.csv", newline="", encoding="utf-8") as f:
        rows = list(csv.DictReader(f))
    failures = []

    def check(what, got, expected):
        if got != expected:
            failures.append(f"{what}: the page shows {got!r}, expected {expected!r}")

    browser = Browser()

    def choose(value):
        browser.eval("{ const s = document.getElementById('only'); s.value = %s;"
                     " s.dispatchEvent(new Event('change')); }" % json.dumps(value))

    def type_filter(text):
        browser.eval("{ const f = document.getElementById('filter'); f.value = %s;"
                     " f.dispatchEvent(new Event('input')); }" % json.dumps(text))

    try:
        browser.open((report / "index.html").as_uri())
        shown = browser.eval("Object.fromEntries([...document.querySelectorAll('.count')].map("
                             "e => [e.id.replace('count-', ''), e.querySelector('.n').innerText]))")
        for key, value in counts_from_csv(rows).items():
            check(f"count {key}", shown.get(key), str(value))
        visible_rows = "document.querySelectorAll('#clients tbody tr').length"
        check("rows of the whole table", browser.eval(visible_rows), len(rows))
        check("rows shown", browser.eval("document.getElementById('shown').textContent"),
              f"{len(rows)} of {len(rows)} clients shown")

        # The "only" choice: the stuck clients.
        choose("stuck")
        stuck = [r for r in rows if r["ended"] == "stuck"]
        check("rows of the stuck clients", browser.eval(visible_rows), len(stuck))
        check("computers of the stuck clients",
              browser.eval("[...document.querySelectorAll('#clients tbody tr td:first-child')].map(t => t.textContent)"),
              sorted(r["computer"] for r in stuck))

        # The filter box, on top of the choice and then alone.
        type_filter("q7")
        check("rows of stuck clients with q7", browser.eval(visible_rows),
              sum(1 for r in stuck if "q7" in r["printersBefore"].lower()))
        choose("")
        with_q7 = sum(1 for r in rows if "q7" in r["printersBefore"].lower())
        check("rows with q7", browser.eval(visible_rows), with_q7)
        check("rows shown with q7", browser.eval("document.getElementById('shown').textContent"),
              f"{with_q7} of {len(rows)} clients shown")

        # A click on the first client opens its detail.
        first = browser.eval("document.querySelector('#clients tbody tr td').textContent")
        browser.eval("document.querySelector('#clients tbody tr').click()")
        check("detail shown", browser.eval("getComputedStyle(document.getElementById('detail')).display"), "block")
        title = browser.eval("document.getElementById('detail-title').textContent")
        if not title.startswith(first + " "):
            failures.append(f"detail title {title!r} is not of the client clicked, {first!r}")

        type_filter("")
        browser.eval("window.scrollTo(0, 0)")
        browser.picture(sys.argv[2])
    finally:
        browser.close()

    for failure in failures:
        print(failure)
    print(f"report_page: {len(failures)} failed checks; picture in {sys.argv[2]}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
