# Frames from the module equal the parvex tool's, byte for byte, for every
# format, for correct and distort, with and without geometry settings.
import numpy as np
import pytest

import parvex
from conftest import FORMATS, random_frame, run_tool

W, H = 640, 480
# (name, tool options, Corrector arguments)
CASES = [
    ("plain", ["--k1", "0.2", "--k2", "0.05"], dict(k=(0.2, 0.05))),
    ("geometry", ["--k1", "-0.15", "--k3", "0.02", "--center", "300,260", "--output-size", "600x420",
                  "--strength", "0.7"],
     dict(k=(-0.15, 0, 0.02), center=(300, 260), output_size=(600, 420), strength=0.7)),
    ("zoom-crop", ["--k1", "0.1", "--zoom", "1.25", "--crop", "20,10,620,470"],
     dict(k=(0.1,), zoom=1.25, crop=(20, 10, 620, 470))),
    ("table", ["--table", "TABLE"], dict(table=((0.0, 0.5, 1.0, 1.5), (0.0, 0.56, 1.2, 1.9)))),
]
# distort takes coefficient lenses only; the engine scales no BGR888 frames.
RUNS = [pytest.param(command, fmt, *case, id=f"{command}-{case[0]}-{fmt}")
        for command in ("correct", "distort") for case in CASES for fmt in FORMATS
        if not (command == "distort" and "table" in case[2])
        and not (fmt == "BGR" and case[2].get("zoom", 1.0) != 1.0)]


@pytest.mark.parametrize("command,fmt,name,options,settings", RUNS)
def test_frames_equal_the_tools(tool, tmp_path, command, fmt, name, options, settings):
    corrector = parvex.Corrector(W, H, fmt, **settings)  # both fill the border with black
    frame = random_frame(corrector, seed=len(name))
    if "--table" in options:
        table = tmp_path / "lens.txt"
        table.write_text("".join(f"{x} {y}\n" for x, y in zip(*corrector.table)))
        options = ["--table", str(table)]
    expected = run_tool(tool, tmp_path, command, fmt, options, frame, corrector.output_shape)
    got = corrector.process(frame) if command == "correct" else corrector.distort(frame)
    assert got.shape == expected.shape
    assert np.array_equal(got, expected)
