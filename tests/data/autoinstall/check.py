#!/usr/bin/env python3
"""Checks the autoinstall section of a user-data file against schema.json
and prints the section as JSON, for the test to compare the values."""
import json
import sys

import jsonschema
import yaml

with open(sys.argv[1], encoding="utf-8") as f:
    text = f.read()
if not text.startswith("#cloud-config\n"):
    sys.exit("user-data does not start with #cloud-config")
data = yaml.safe_load(text)
with open(sys.argv[2], encoding="utf-8") as f:
    schema = json.load(f)
jsonschema.validate(data["autoinstall"], schema)
with open(sys.argv[3], encoding="utf-8") as f:
    meta = yaml.safe_load(f)
print(json.dumps({"autoinstall": data["autoinstall"], "meta": meta}))
