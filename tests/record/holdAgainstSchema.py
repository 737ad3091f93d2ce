"""Holds lines of recordings against the schema, and numbers and checksums against the documentation.

usage: holdAgainstSchema.py SCHEMA EVENTS RECORDING...

EVENTS has events alone, without a number and a checksum.
"""
import json
import re
import sys
import zlib

import jsonschema


def validators(schema):
    """By the kind of line, as trying all of them for each of many lines takes minutes."""
    found = {}
    for each in schema["oneOf"]:
        name = each["$ref"].rsplit("/", 1)[1]
        part = {**schema["$defs"][name], "$defs": schema["$defs"]}
        found[name] = jsonschema.Draft202012Validator(part)
    return found


def kind(line):
    return "event-" + line["event"] if "event" in line else line["recording"]


def alike(text):
    """For the schema, numbers from 1 on are all alike, and so are checksums: one of each is enough."""
    return re.sub(rb'(?<=":)[1-9]\d*(?=[,}])|(?<="crc":)"[0-9a-f]{8}"', b"1", text)


def main(schema_path, events_path, *recordings):
    with open(schema_path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    by_kind = validators(schema)
    seen = set()
    with open(events_path, encoding="utf-8") as file:
        for text in file:
            line = {"n": 1, "crc": "00000000", **json.loads(text)}
            by_kind[kind(line)].validate(line)
            seen.add(kind(line))
    for path in recordings:
        crc = 0
        held = set()
        with open(path, "rb") as file:
            for number, text in enumerate(file, 1):
                line = json.loads(text)
                if alike(text) not in held:
                    by_kind[kind(line)].validate(line)
                    held.add(alike(text))
                    seen.add(kind(line))
                assert line["n"] == number, (path, number)
                assert line["crc"] == f"{crc:08x}", (path, number)
                crc = zlib.crc32(text[:-1])
        assert kind(line) == "ends", path
    unseen = set(by_kind) - seen
    assert not unseen, f"no line was of these kinds: {unseen}"


main(*sys.argv[1:])
