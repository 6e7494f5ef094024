"""Writes which version of CPython this is, "3.11" for instance."""

import sys

print(f"{sys.version_info.major}.{sys.version_info.minor}")
