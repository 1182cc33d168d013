# Shared pieces of the Python module's tests. The module comes from
# PYTHONPATH (tools/test-all.sh points it at the build tree); the parvex tool
# from PARVEX_TOOL, or the newest build/*/tools/parvex.
import glob
import os

import numpy as np
import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


@pytest.fixture(scope="session")
def tool():
    path = os.environ.get("PARVEX_TOOL")
    if path:
        assert os.access(path, os.X_OK), f"PARVEX_TOOL={path} is not an executable"
        return path
    found = sorted(glob.glob(os.path.join(ROOT, "build", "*", "tools", "parvex")), key=os.path.getmtime)
    if not found:
        pytest.skip("no parvex tool built (set PARVEX_TOOL)")
    return found[-1]


def random_frame(corrector_or_shape, seed=1):
    shape = getattr(corrector_or_shape, "input_shape", corrector_or_shape)
    return np.random.default_rng(seed).integers(0, 256, size=shape, dtype=np.uint8)

