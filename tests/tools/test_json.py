# SPDX-License-Identifier: MIT
"""usage: test_json.py SAMPLE_REPORT SCHEMA - the JSON report obeys its schema and adds up. Exits
with 77 if Python has no jsonschema."""
import copy
import json
import subprocess
import sys

try:
    import jsonschema
except ImportError:
    print("python3-jsonschema is not installed")
    sys.exit(77)

sample, schema_file = sys.argv[1:]
with open(schema_file, encoding="utf-8") as file:
    schema = json.load(file)
validator = jsonschema.Draft202012Validator(schema)
validator.check_schema(schema)

text = subprocess.run([sample, "json", "120", "300"], check=True, stdout=subprocess.PIPE).stdout
report = json.loads(text.decode("utf-8", "strict"))
for error in validator.iter_errors(report):
    sys.exit(f"{list(error.path)}: {error.message}")


def total(elements, key):
    """The sum of an amount over elements."""
    return {unit: sum(each[key][unit] for each in elements) for unit in ("blocks", "bytes")}


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
assert [fault.get("bytes") for fault in report["faults"]] == [48, 48, None, 48, 48, -24]
assert report["faults"][0]["block"] == "0xffff80001234"
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
