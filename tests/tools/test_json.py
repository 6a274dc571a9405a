# SPDX-License-Identifier: MIT
"""usage: test_json.py SAMPLE_REPORT SCHEMA - JSON obeys its schema, and the report adds up. Exits
with 77 if Python has no jsonschema."""
import copy
import json
import pathlib
import subprocess
import sys

try:
    import jsonschema
except ImportError:
    print("python3-jsonschema is not installed")
    sys.exit(77)

sample, schema_file = sys.argv[1:]
schema = json.loads(pathlib.Path(schema_file).read_text(encoding="utf-8"))
validator = jsonschema.Draft202012Validator(schema)
validator.check_schema(schema)


def make(format_name):
    made = subprocess.check_output([sample, format_name, "120", "300"])
    value = json.loads(made.decode("utf-8", "strict"))
    validator.validate(value)
    return value


def total(elements, key):
    """The sum of an amount over elements."""
    return {unit: sum(each[key][unit] for each in elements) for unit in ("blocks", "bytes")}


report = make("json")
diff = make("diff")
assert diff["before"] == report["totals"] and len(diff["changes"]) > 60
before, after = (diff[when]["live"]["bytes"] - sum(change[when]["live"]["bytes"]
                 for change in diff["changes"]) for when in ("before", "after"))
assert before == after  # what did not change
calls = report["calls"]
assert report["totals"]["live"] == total(report["rows"], "live") == calls[0]["live"]
assert report["totals"]["total"] == total(report["rows"], "total") == calls[0]["total"]
suppressed = [row for row in report["rows"] if row["suppressed"]]
assert report["suppressed"] == total(suppressed, "live")
for number, node in enumerate(calls):
    assert node.get("parent", -1) < number, node
    children = [child for child in calls if child.get("parent") == number]
    assert total(children, "total")["bytes"] <= node["total"]["bytes"], node
kinds = schema["$defs"]["fault"]["properties"]["kind"]["enum"]
assert [fault["kind"] for fault in report["faults"]] == kinds
assert [fault.get("bytes") for fault in report["faults"]] == [48, 48, None, None, 48, -24]
assert [fault["count"] for fault in report["faults"]] == [1, 2, 3, 4, 5, 6]
assert report["faults"][0]["block"].startswith("0xffff800")
assert report["faults"][2].keys().isdisjoint({"allocated", "released_first"})
assert [process.get("status") for process in report["processes"]] == [0, 137, None]
assert "milliseconds" not in report["processes"][2]["moments"][0]
assert "\ufffd\ufffd broken \ufffd(\x01" in [row["frames"][0]["function"] for row in report["rows"]]

# The schema knows every member: it refuses one more anywhere.
changed = copy.deepcopy(report)
for part in (changed, changed["totals"], changed["totals"]["peak"], changed["processes"][2],
             changed["processes"][2]["first_foreign"][0], changed["processes"][0]["moments"][0],
             changed["rows"][0], changed["rows"][0]["frames"][0], changed["faults"][0],
             changed["calls"][1], changed["missing"][0]):
    part["unheard_of"] = 1
    assert not validator.is_valid(changed), part
    del part["unheard_of"]
