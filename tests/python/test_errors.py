# Every bad argument raises the exception its result code maps to, naming
# the argument, before any frame is touched.
import numpy as np
import pytest

import parvex

W, H = 640, 480
GOOD = dict(width=W, height=H, format="NV12", k=(0.2,))


def build(**changes):
    args = dict(GOOD, **changes)
    for key in [k for k, v in changes.items() if v is DROP]:
        del args[key]
    return parvex.Corrector(args.pop("width"), args.pop("height"), args.pop("format"), **args)


DROP = object()

CONSTRUCTOR_CASES = [
    # (changes, exception, argument)
    (dict(width=100), parvex.ParamError, "width"),
    (dict(height=7000), parvex.ParamError, "height"),
    (dict(width=641), parvex.ParamError, "width, height"),
    (dict(format="YUYV"), parvex.FormatError, "format"),
    (dict(k=DROP), parvex.ParamError, "k, table"),
    (dict(table=((0, 1), (0, 1))), parvex.ParamError, "k, table"),
    (dict(k=(1, 2, 3, 4, 5)), parvex.ParamError, "k"),
    (dict(k="0.2"), parvex.ParamError, "k"),
    (dict(k=(float("nan"),)), parvex.ParamError, "k"),
    (dict(k=DROP, table=((0, 1, 2), (0, 1))), parvex.ParamError, "table"),
    (dict(k=DROP, table=((0,), (0,))), parvex.ParamError, "table"),
    (dict(k=DROP, table=((0, 2, 1), (0, 1, 2))), parvex.ParamError, "table"),
    (dict(center=(700, 10)), parvex.ParamError, "center"),
    (dict(center=(1,)), parvex.ParamError, "center"),
    (dict(output_size=(0, 10)), parvex.ParamError, "output_size"),
    (dict(output_size=(641, 480)), parvex.ParamError, "output_size"),
    (dict(output_size="big"), parvex.ParamError, "output_size"),
    (dict(output_size=(9000, 9000)), parvex.ParamError, "output_size"),
    (dict(zoom=1.5, output_size=(320, 240)), parvex.ParamError, "zoom, output_size"),
    (dict(zoom=1.5, output_size="recommended"), parvex.ParamError, "zoom, output_size"),
    (dict(zoom=1.5, format="BGR"), parvex.ParamError, "zoom, format"),
    (dict(zoom=0.5), parvex.ParamError, "zoom"),
    (dict(strength=1.0000001), parvex.ParamError, "strength"),
    (dict(crop=(10, 10, 5, 20)), parvex.ParamError, "crop"),
    (dict(crop=(0, 0, 641, 480)), parvex.ParamError, "crop"),
    (dict(crop=(0, 0, 1.5, 480)), parvex.ParamError, "crop"),
    (dict(workers=0), parvex.ParamError, "workers"),
    (dict(workers=17), parvex.ParamError, "workers"),
    (dict(fill="white"), parvex.ParamError, "fill"),
    (dict(fill=(0, 0, 256)), parvex.ParamError, "fill"),
]


@pytest.mark.parametrize("changes,error,argument", CONSTRUCTOR_CASES)
def test_constructor_refuses(changes, error, argument):
    with pytest.raises(error) as caught:
        build(**changes)
    assert caught.value.argument == argument
    assert caught.value.code_name in str(caught.value)


@pytest.fixture
def corrector():
    with build() as c:
        yield c


def frame_cases():
    good = np.zeros((H * 3 // 2, W), np.uint8)
    readonly = np.zeros_like(good)
    readonly.flags.writeable = False
    return [
        # (frame, out, exception, argument)
        (good.astype(np.uint16), None, parvex.ParamError, "frame"),
        (good[:-2], None, parvex.ParamError, "frame"),
        (good.reshape(-1), None, parvex.ParamError, "frame"),
        (good, np.zeros((H, W), np.uint8), parvex.ParamError, "out"),
        (good, np.zeros_like(good, dtype=np.float32), parvex.ParamError, "out"),
        (good, readonly, parvex.ParamError, "out"),
        (good, np.zeros((H * 3 // 2, W * 2), np.uint8)[:, ::2], parvex.ParamError, "out"),
        (good, good[::-1], parvex.ParamError, "out"),
    ]


@pytest.mark.parametrize("frame,out,error,argument", frame_cases())
@pytest.mark.parametrize("call", ["process", "distort"])
def test_frame_calls_refuse(corrector, call, frame, out, error, argument):
    with pytest.raises(error) as caught:
        getattr(corrector, call)(frame, out=out)
    assert caught.value.argument == argument


def test_not_an_array_is_a_type_error(corrector):
    with pytest.raises(TypeError, match="numpy array"):
        corrector.process([[0] * W] * (H * 3 // 2))


def test_distort_refuses_a_table_lens():
    with build(k=DROP, table=((0, 1), (0, 1.1))) as c:
        with pytest.raises(parvex.ParamError, match="coefficients"):
            c.distort(np.zeros(c.input_shape, np.uint8))


@pytest.mark.parametrize("name,value,argument", [
    ("strength", -0.1, "strength"), ("zoom", 0.9, "zoom"), ("crop", (0, 0, 10), "crop"),
    ("crop", (5, 5, 5, 5), "crop")])
def test_setters_refuse(corrector, name, value, argument):
    with pytest.raises(parvex.ParamError) as caught:
        setattr(corrector, name, value)
    assert caught.value.argument == argument


def test_zoom_setter_keeps_the_output_size_rule():
    with build(output_size=(320, 240)) as c:
        with pytest.raises(parvex.ParamError, match="output_size"):
            c.zoom = 2.0


def test_closed_corrector_raises_state_error(corrector):
    corrector.close()
    corrector.close()
    assert corrector.closed
    for action in (lambda: corrector.process(np.zeros(corrector.input_shape, np.uint8)),
                   lambda: setattr(corrector, "strength", 0.5),
                   lambda: setattr(corrector, "zoom", 1.5),
                   lambda: corrector.crop):
        with pytest.raises(parvex.StateError) as caught:
            action()
        assert caught.value.code_name == "PARVEX_ERROR_STATE" and isinstance(caught.value, RuntimeError)


def test_calibration_errors():
    with pytest.raises(FileNotFoundError):
        parvex.Corrector.from_calibration("/nonexistent/camera.yaml", W, H)
    with pytest.raises(parvex.CalibrationError):
        parvex.Corrector.from_calibration({"android.lens.distortion": "nonsense"}, W, H)
