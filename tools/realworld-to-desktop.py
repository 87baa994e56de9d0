#!/usr/bin/env python3
"""Converts a recorded accessibility dump (nodes with name, role, description,
role_description, value, position "x;y", size "w;h", children; positions relative to
the window) into a simulated desktop file with one application.

usage: realworld-to-desktop.py DUMP.json APP-NAME BUNDLE-ID > desktop.json
"""
import json
import sys


def pair(text):
    a, b = text.split(";")
    return [float(a), float(b)]


def convert(node, origin, is_window):
    out = {"role": node["role"]}
    if node.get("name") is not None:
        out["title"] = node["name"]
    if node.get("description") is not None:
        out["description"] = node["description"]
    if node.get("role_description") is not None:
        out["roleDescription"] = node["role_description"]
    if node.get("value") is not None:
        out["value"] = node["value"]
    x, y = pair(node["position"])
    out["position"] = [x, y] if is_window else [origin[0] + x, origin[1] + y]
    out["size"] = pair(node["size"])
    children = [convert(c, origin, False) for c in node.get("children", [])]
    if children:
        out["children"] = children
    return out


def main():
    dump, name, bundle = sys.argv[1], sys.argv[2], sys.argv[3]
    with open(dump) as f:
        root = json.load(f)
    origin = pair(root["position"])
    window = convert(root, origin, True)
    window["id"] = "window"
    width, height = window["size"]
    desktop = {
        "tavlinDesktop": 1,
        "description": "Converted from a recorded accessibility tree of a real macOS window; see LICENSE.md beside this file.",
        "clock": {"start": "2025-06-01T12:00:00Z"},
        "screen": {"width": 1728, "height": 1117, "backingScale": 2},
        "frontmostPid": 700,
        "apps": [{
            "pid": 700,
            "name": name,
            "bundleIdentifier": bundle,
            "ui": {
                "role": "AXApplication",
                "title": name,
                "attributes": {"AXFocusedWindow": {"ref": "window"}, "AXMainWindow": {"ref": "window"}},
                "children": [window],
            },
        }],
        "windows": [{"number": 9001, "pid": 700, "bounds": [origin[0], origin[1], width, height],
                     "name": root.get("name")}],
    }
    json.dump(desktop, sys.stdout, indent=1, ensure_ascii=False)
    sys.stdout.write("\n")


if __name__ == "__main__":
    main()
