#!/usr/bin/env python3
"""What velmara serve answers is what its description says: openapi_test.py VELMARA OPENAPI-JSON"""
import json
import os
import re
import sys
import unittest
from http.client import HTTPConnection
from subprocess import PIPE, Popen

from jsonschema import Draft202012Validator

VELMARA, FILE = sys.argv[1:3]
# Leaves alone the settings of whoever runs this, and Bluetooth, which would take 13 s.
os.environ.update(XDG_CONFIG_HOME="/dev/null", DBUS_SYSTEM_BUS_ADDRESS="unix:path=/dev/null")


def closed(schema):
    """An object has no members but those that are told of, unless words describe it."""
    told = schema.get("type") == "object" and "properties" in schema and "description" not in schema
    return {"additionalProperties": False, **schema} if told else schema


class Description(unittest.TestCase):
    def setUp(self):
        with open(FILE) as file:
            self.description = json.load(file, object_hook=closed)
        server = self.enterContext(Popen([VELMARA, "serve", "--listen", "127.0.0.1:0", "--fast"], stdout=PIPE, text=True))
        self.addCleanup(server.terminate)
        self.address = re.search("//(.*)/", server.stdout.readline())[1]
        self.headers = {"Content-Type": "application/json"}
        page = self.ask("GET", "/").read().decode()
        self.headers["Authorization"] = "Bearer " + re.search(r'velmara-token" content="(\w+)"', page)[1]

    def ask(self, method, path, body=None):
        connection = HTTPConnection(self.address, timeout=40)
        connection.request(method, path, json.dumps(body) if method == "POST" else None, self.headers)
        return connection.getresponse()

    def check(self, method, path, status=200, **body):
        with self.subTest(path=path, **body), self.ask(method, path, body) as answer:
            responses = self.description["paths"][path.partition("?")[0]][method.lower()]["responses"]
            [(kind, content)] = responses.get(str(status), responses["default"])["content"].items()
            self.assertEqual((answer.status, answer.headers.get_content_type()), (status, kind))
            if kind == "application/json":
                schema = content["schema"] | {"components": self.description["components"]}  # where $ref looks
                errors = Draft202012Validator(schema).iter_errors(json.load(answer))
                self.assertEqual([f"{error.json_path}: {error.message}" for error in errors], [])

    def test_holds(self):
        self.check("GET", "/api/recording.csv", 404)
        self.check("GET", "/report", 404)
        self.check("POST", "/api/connect", link="demo:petrol-can29")
        viewer = self.enterContext(self.ask("GET", "/api/events?watch=14"))  # a PID with two values
        next(line for line in viewer if b'"14.1"' in line and b'"value"' in line)
        for unit in ("18DAF118", "ECM"):
            self.check("POST", "/api/control-unit", ecu=unit)
        for name in "codes freeze info monitors summary tests".split():
            self.check("POST", "/api/read", name=name, ecu="ECM")
        self.check("POST", "/api/read", name="monitors")
        for path in "recording/start recording/stop login bluetooth".split():
            self.check("POST", f"/api/{path}")
        for path in "state sensors values history events links document?name=monitors recording.csv openapi.json".split():
            self.check("GET", f"/api/{path}")
        self.check("GET", "/metrics")
        self.check("POST", "/api/clear", 400)
        self.check("POST", "/api/clear", confirm=True)
        self.check("POST", "/api/unit-system", unitSystem="imperial")
        self.check("POST", "/api/cancel")
        self.check("POST", "/api/disconnect")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
