# SPDX-License-Identifier: MIT
"""usage: test_html.py SAMPLE_REPORT SCHEMA - the page shows the numbers of the JSON report in
Chromium, its controls work, and no text of a trace becomes markup or script. Exits with 77 if there
is no Chromium."""
import html.parser
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

chromium = shutil.which("chromium") or shutil.which("chromium-browser")
if not chromium:
    print("Chromium is not installed")
    sys.exit(77)
sample = sys.argv[1]


def make(format_name):
    return subprocess.check_output([sample, format_name, "60", "300"]).decode("utf-8")


class Page(html.parser.HTMLParser):
    """What a test asks of a page: its tags, the values of <data>, by id or class, and its text."""

    def __init__(self, source):
        super().__init__()
        self.tags, self.values, self.text, self.body = [], {}, [], {}
        self.feed(source)

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.tags.append(tag)
        if tag == "body":
            self.body = attributes
        if tag == "data":
            name = attributes.get("id") or attributes.get("class")
            self.values.setdefault(name, []).append(int(attributes["value"]))

    def handle_data(self, data):
        self.text.append(data)


def load(source):
    """The page as it is after its scripts have run, and what Chromium's console says."""
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        pathlib.Path(folder, "page.html").write_text(source, encoding="utf-8")
        run = subprocess.run(
            [chromium, "--headless=new", "--no-sandbox", "--disable-gpu", "--dump-dom",
             "--enable-logging=stderr",
             f"--user-data-dir={folder}/user", f"file://{folder}/page.html"],
            check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=300)
    console = [line for line in run.stderr.decode().splitlines() if ":CONSOLE" in line]
    return Page(run.stdout.decode("utf-8")), console


source = make("html")
report = json.loads(make("json"))
totals = report["totals"]
assert not re.search(r"\b(src|href)=[\"']?(?!#)\w|@import|url\(|https?://(?!www\.w3\.org/2000/svg)",
                     re.sub(r'<script id="report".*?</script>', "", source, flags=re.S))

page, console = load(source)
assert console == [], console
assert page.body.get("data-ready") == "yes", page.body
shown = {
    "figure-live": [totals["live"]["bytes"]],
    "figure-peak": [totals["peak"]["bytes"]],
    "figure-processes": [len(report["processes"])],
    "calls-bytes": [report["calls"][0]["live"]["bytes"]],
    "live": [row["live"]["bytes"] for row in report["rows"]],
    "peak": [row["at_peak"]["bytes"] for row in report["rows"]],
    "count": [row["total"]["blocks"] for row in report["rows"]],
    "foreign": [report["processes"][2]["foreign_lines"]],
}
shown |= {f"figure-{name}": [totals[name]]
          for name in ("allocations", "releases", "failed", "refused", "faults")}
for name, values in shown.items():
    assert page.values[name] == values, (name, page.values[name], values)
assert page.tags.count("script") == 2 and "img" not in page.tags
assert page.tags.count("polyline") == 2  # the two processes with times
assert page.tags.count("article") == len(report["faults"]) + len(report["processes"])
assert "-24 bytes" in "".join(page.text)
functions = {row["frames"][0]["function"].replace("\x01", "\ufffd") for row in report["rows"]}
assert functions <= {text.replace("\x01", "\ufffd") for text in page.text}

# The page refuses a script that is not its own, wherever it comes from.
attack = "<script>document.body.dataset.ready = 'hit'</script></body>"
page, console = load(source.replace("</body>", attack))
assert page.body.get("data-ready") == "yes" and len(console) == 1, console

# Sort by bytes ever, search, open a row, zoom, switch to events.
steps = """<script>
const click = (selector) => document.querySelector(selector).click();
[...document.querySelectorAll("th button")].find((b) => b.textContent === "Bytes ever").click();
for (const id of ["rows-search", "calls-search"]) {
  element(id).value = "COPY_";
  element(id).dispatchEvent(new Event("input"));
}
click("td .place");
click("[value=total]");
click("[aria-level='3']");
click("#run-axis [value=event]");
</script></body>"""
page, console = load(re.sub(r"<meta http-equiv.*", "", source).replace("</body>", steps))
assert console == [], console
found = [row for row in report["rows"] if "copy_" in json.dumps(row["frames"])]
ever = sorted((row["total"]["bytes"] for row in found), reverse=True)
assert 0 < len(found) < 60 and page.values["total"] == ever, page.values["total"]
assert "Sizes" in page.text and "Through" in page.text
main = next(call for call in report["calls"] if call.get("function") == "main")
assert page.values["calls-bytes"] == [main["total"]["bytes"]]
assert re.search(r"[\d.]+\s[KM]iB found, ", "".join(page.text))
assert page.tags.count("polyline") == 3
