#!/usr/bin/python3
"""Counts the single tests behind a ctest report: count_tests.py REPORT.xml. Prints "N passed, N failed".

A program of gtest tests counts with each of its tests; one that ended without gtest's counts, as after a crash, counts as one.
"""
import re
import sys
import xml.etree.ElementTree


def count(case):
    output = case.findtext("system-out") or ""
    passed = sum(map(int, re.findall(r"^\[  PASSED  \] (\d+) tests?\.", output, re.M)))
    failed = len(re.findall(r"^\[  FAILED  \] .+ \(\d+ ms\)$", output, re.M))
    if case.get("status") == "run":
        return max(passed, 1), failed
    return passed, max(failed, 1)


def main():
    counts = [count(case) for case in xml.etree.ElementTree.parse(sys.argv[1]).iter("testcase")]
    print(f"{sum(passed for passed, _ in counts)} passed, {sum(failed for _, failed in counts)} failed")


if __name__ == "__main__":
    main()
