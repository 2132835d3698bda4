"""What ./run builds needs nothing that only the tests need; ./check builds everything or says what is missing."""

import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
NOTHING_FOR_TESTS = ("-D", "CMAKE_DISABLE_FIND_PACKAGE_GTest=ON", "-D", "DV_PYTHON=/bin/false")


def configure(folder, *options):
    return subprocess.run(["cmake", "--preset", "release", "-B", str(folder), *NOTHING_FOR_TESTS, *options], cwd=ROOT,
                          capture_output=True, text=True, timeout=250, check=False)


def test_the_programs_are_built_where_the_tests_cannot_be(tmp_path):
    done = configure(tmp_path, "-D", "DV_TESTS_OPTIONAL=ON")
    assert done.returncode == 0, done.stderr
    made = subprocess.run(["ninja", "-C", str(tmp_path), "-t", "query", "at_owner", "smsctl", "sms_web", "t750_sim"],
                          capture_output=True, text=True, check=False)
    assert made.returncode == 0, made.stdout + made.stderr


@pytest.mark.parametrize("there, missing", [
    ("CMAKE_DISABLE_FIND_PACKAGE_GTest=OFF", "need Python with pytest"), ("DV_PYTHON=python3", "GTest")])
def test_what_the_tests_lack_is_an_error_where_everything_is_wanted(tmp_path, there, missing):
    done = configure(tmp_path, "-D", there)
    assert done.returncode != 0 and missing in done.stderr
