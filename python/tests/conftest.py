import os
import shutil
import subprocess

import pytest


def _tool(env_name):
    path = os.environ.get(env_name)
    if not path or not os.path.exists(path):
        pytest.skip(f"{env_name} not set (ctest sets it)")
    return path


@pytest.fixture(scope="session")
def c_written(tmp_path_factory):
    """A file the C library wrote directly (tests/python/write_fixture.c)."""
    path = tmp_path_factory.mktemp("c") / "fixture.sdf"
    subprocess.run([_tool("ZELTRASDF_WRITE_FIXTURE"), str(path)], check=True)
    return path


@pytest.fixture
def sdf_tool():
    return _tool("ZELTRASDF_SDF_TOOL")
