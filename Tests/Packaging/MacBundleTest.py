#!/usr/bin/env python3
"""What the bundle for the Mac says of itself: the property lists are valid, say what the system and the
frameworks look for, and agree with the sources."""

import plistlib
import re
import struct
import subprocess
import unittest
from pathlib import Path

root = Path(__file__).resolve().parents[2]
folder = root / "Packaging/macos"
values = {
    "MACOSX_BUNDLE_EXECUTABLE_NAME": "Orvel Agent",
    "PROJECT_VERSION": "1.2.3",
    "ORVEL_BUILD": "45",
    "CMAKE_OSX_DEPLOYMENT_TARGET": "14.0",
    "ORVEL_UPDATE_FEED": "https://example.com/appcast.xml",
    "ORVEL_UPDATE_KEY": "KEY",
}


def info():
    text = (folder / "Info.plist.in").read_text()
    return plistlib.loads(re.sub(r"\$\{(\w+)\}", lambda name: values[name[1]], text).encode())


class MacBundle(unittest.TestCase):
    def test_info_has_what_is_looked_for(self):
        found = info()
        for key, value in {
            "CFBundleIdentifier": "com.halverton.orvel.agent",
            "CFBundleExecutable": "Orvel Agent",
            "CFBundlePackageType": "APPL",
            "CFBundleShortVersionString": "1.2.3",
            "CFBundleVersion": "45",
            "LSMinimumSystemVersion": "14.0",
            "LSUIElement": True,
            "NSSupportsAutomaticTermination": False,
            "NSSupportsSuddenTermination": False,
            "NSBonjourServices": ["_orvel._tcp"],
            "SUFeedURL": "https://example.com/appcast.xml",
            "SUPublicEDKey": "KEY",
        }.items():
            self.assertEqual(found.get(key), value, key)
        descriptions = {key for key in found if key.endswith("UsageDescription")}
        self.assertIn("NSLocalNetworkUsageDescription", descriptions)
        for key in descriptions:
            self.assertGreater(len(found[key]), 10, key)

    def test_it_agrees_with_the_sources(self):
        identifier, service = info()["CFBundleIdentifier"], info()["NSBonjourServices"][0]
        cmake = (root / "CMakeLists.txt").read_text()
        self.assertIn(f"CMAKE_OSX_DEPLOYMENT_TARGET {values['CMAKE_OSX_DEPLOYMENT_TARGET']} ", cmake)
        for text in identifier, service:
            found = subprocess.run(["grep", "-rlF", f'"{text}"', root / "OrvelAgent/Core", root / "OrvelKit"],
                                   capture_output=True, text=True).stdout
            self.assertTrue(found, text)

    def test_no_exception_of_the_hardened_runtime(self):
        self.assertEqual(plistlib.loads((folder / "OrvelAgent.entitlements").read_bytes()), {})

    def test_the_icon_is_whole(self):
        data = (folder / "OrvelAgent.icns").read_bytes()
        magic, length = struct.unpack(">4sI", data[:8])
        self.assertEqual((magic, length), (b"icns", len(data)))
        sizes, at = [], 8
        while at < length:
            _, size = struct.unpack(">4sI", data[at:at + 8])
            picture = data[at + 8:at + size]
            self.assertTrue(picture.startswith(b"\x89PNG"))
            sizes.append(struct.unpack(">I", picture[16:20])[0])
            at += size
        self.assertEqual(at, length)
        self.assertEqual(max(sizes), 1024)


if __name__ == "__main__":
    unittest.main()
