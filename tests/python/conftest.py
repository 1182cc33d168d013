# Shared pieces of the Python module's tests. The module comes from
# PYTHONPATH (tools/test-all.sh points it at the build tree); the parvex tool
# from PARVEX_TOOL, or the newest build/*/tools/parvex.
import glob
import os
import subprocess

import cv2

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



FORMATS = {  # module format: (engine format, file extension)
    "NV12": ("YUV420_SEMIPLANAR", "nv12"),
    "NV21": ("YVU420_SEMIPLANAR", "nv21"),
    "I420": ("YUV420_PLANAR", "yuv"),
    "RGB": ("RGB888", "png"),
    "BGR": ("BGR888", "png"),
}


def run_tool(tool, tmp_path, command, fmt, options, frame, output_shape):
    """The tool's output for `frame` (raw files, or PNG for RGB and BGR)."""
    engine, ext = FORMATS[fmt]
    src, dst = tmp_path / f"in.{ext}", tmp_path / f"out.{ext}"
    height, width = frame.shape[:2] if ext == "png" else (frame.shape[0] * 2 // 3, frame.shape[1])
    args = [tool, command, str(src), str(dst), "--format", engine, "--quiet"]
    if ext == "png":
        cv2.imwrite(str(src), frame if fmt == "BGR" else cv2.cvtColor(frame, cv2.COLOR_RGB2BGR))
    else:
        frame.tofile(src)
        args += ["--size", f"{width}x{height}"]
    subprocess.run(args + options, check=True)
    if ext != "png":
        return np.fromfile(dst, dtype=np.uint8).reshape(output_shape)
    image = cv2.imread(str(dst), cv2.IMREAD_UNCHANGED)
    return image if fmt == "BGR" else cv2.cvtColor(image, cv2.COLOR_BGR2RGB)
