#!/usr/bin/python3
"""Runs the tests of tools/triage, all or those that are named; the last line is "N passed, M failed"."""
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True
FOLDER = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(FOLDER), str(FOLDER.parents[1] / "tools"), str(FOLDER.parents[1] / "scripts")]


def main() -> int:
    loader = unittest.TestLoader()
    tests = loader.loadTestsFromNames(sys.argv[1:]) if sys.argv[1:] else loader.discover(str(FOLDER))
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=0).run(tests)
    bad = [test for test, _ in result.failures + result.errors] + result.unexpectedSuccesses
    failed = len({getattr(test, "test_case", test) for test in bad})  # of one with subtests any number may fail
    print(f"{result.testsRun - failed - len(result.skipped)} passed, {failed} failed")
    return 1 if failed or not result.testsRun else 0


if __name__ == "__main__":
    sys.exit(main())
