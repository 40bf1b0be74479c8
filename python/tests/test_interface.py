"""Descriptions, argument checks and the library's symbols, without running an algorithm."""
import json
import os
import shutil
import subprocess
import sys

import pytest

from conftest import ROOT


def test_every_description_is_listed_and_its_entry_exported(af):
    files = sorted(p.stem for p in (ROOT / "Model" / "abd").glob("*.json"))
    assert len(files) > 100
    assert set(af.algorithms()) >= {json.loads((ROOT / "Model" / "abd" / (f + ".json")).read_text())["algorithm"]
                                    for f in files}
    for name in af.algorithms():
        algorithm = af.describe(name)
        kinds = af.entry_kinds(algorithm.entry)
        assert kinds is not None, algorithm.entry
        if algorithm.route == "json-text":
            assert kinds == ["json"], name
        elif algorithm.route == "direct":
            assert kinds == [p.kind for p in algorithm.params], name
        assert all(p.kind in ("text", "int", "long", "float", "double") for p in algorithm.params)
        assert af.describe(algorithm.entry).entry == algorithm.entry  # several names may share one
    assert af.describe("BandCompute").subsystem == "Band math"
    assert af.describe("KmeansClassification").subsystem == "Classification"


@pytest.mark.parametrize("name, params, error, words", [
    ("BandCompte", {}, "UnknownAlgorithm", ["BandCompte"]),
    ("bandcompute", {}, "UnknownAlgorithm", ["did you mean BandCompute"]),
    ("BandCompute", {"Formula": "b1"}, "ParameterError", ["Formula", "CalculationExp"]),
    ("BandCompute", {"CalculationExp": "b1", "Images": "a.tif", "Bands": "1", "OutputFile": "o.tif",
                     "dataType": "6"}, "ParameterError", ["dataType", "integer"]),
    ("BandCompute", {"CalculationExp": "b1", "Images": "a.tif", "Bands": "1", "OutputFile": "o.tif",
                     "dataType": 2 ** 40}, "ParameterError", ["dataType", "32-bit"]),
    ("BandCompute", {"CalculationExp": "b1", "Images": "a.tif", "Bands": "1"}, "ParameterError", ["OutputFile"]),
    ("KmeansClassification", {"InputFile": "a.tif", "OutputFile": "b.img", "Threshold": "0.1"},
     "ParameterError", ["Threshold", "number"]),
    ("KmeansClassification", {"InputFile": "a.tif", "OutputFile": "b.img", "ExpectedClasses": 4.0},
     "ParameterError", ["ExpectedClasses"]),
])
def test_bad_requests_are_refused_before_the_library_runs(af, name, params, error, words, capfd):
    with pytest.raises(getattr(af, error)) as raised:
        af.run(name, **params)
    for word in words:
        assert word in str(raised.value)
    assert capfd.readouterr().out == ""


def test_call_checks_kinds_and_counts(af):
    with pytest.raises(af.UnknownAlgorithm):
        af.call("ExcuteAlgo_NoSuchThing")
    with pytest.raises(af.ParameterError, match=r"takes 2 arguments \(text, text\), 1 given"):
        af.call("ImgClassPostSta", "a.img")
    with pytest.raises(af.ParameterError, match="FirstValue"):
        af.call("ExcuteAlgo_ImgClassPostSieve", "a.img", "b.img", "ten", 8)
    with pytest.raises(af.ParameterError, match="one JSON object"):
        af.call("ExcuteAlgo_Decompress", "a", "b")


def test_a_failed_run_raises_with_code_and_message_or_returns_it(af, tmp_path):
    missing = str(tmp_path / "missing.tif")
    with pytest.raises(af.AlgoFailed) as raised:
        af.call("ExcuteAlgo_ImgClassPostSta", missing, str(tmp_path / "r.txt"))
    result = raised.value.result
    assert not result.success and result.lines  # the entry's own refusal, captured
    again = af.call("ExcuteAlgo_ImgClassPostSta", missing, str(tmp_path / "r.txt"), check=False)
    assert not again and again.lines == result.lines
    assert not any(tmp_path.iterdir())


def test_library_missing_is_an_exception_not_a_crash(tmp_path):
    env = dict(os.environ, ALGOFACTORY_LIBRARY=str(tmp_path / "nowhere" / "libAlgoFactory.so"))
    env.pop("ALGOFACTORY_BUILD_DIR", None)
    (tmp_path / "not_a_library.so").write_bytes(b"\x7fELF broken")
    code = ("import algofactory\n"
            "for path in (%r, %r):\n"
            "    import os, algofactory._library as l; l._library = None; os.environ['ALGOFACTORY_LIBRARY'] = path\n"
            "    try:\n"
            "        algofactory.call('ExcuteAlgo_ImgClassPostSta', 'a', 'b')\n"
            "    except algofactory.LibraryNotFound as e:\n"
            "        print('refused:', e)\n") % (env["ALGOFACTORY_LIBRARY"], str(tmp_path / "not_a_library.so"))
    done = subprocess.run([sys.executable, "-c", code], env=dict(env, PYTHONPATH=str(ROOT / "python")),
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    refusals = done.stdout.splitlines()
    assert len(refusals) == 2
    assert "was not found" in refusals[0] and "nowhere" in refusals[0]
    assert "does not load" in refusals[1]


def test_no_stdio_call_of_the_library_escapes_the_thread_sink(af):
    nm = shutil.which("nm")
    if not nm:
        pytest.skip("nm is not installed")
    undefined = subprocess.run([nm, "-D", "--undefined-only", str(af.library_path())], capture_output=True,
                               text=True, check=True).stdout.split()
    # The wrapped calls still name printf & co. (through __real_); these would bypass the wrapping.
    bypass = {"__printf_chk", "__fprintf_chk", "__vprintf_chk", "__vfprintf_chk", "__puts_chk", "putc", "_IO_putc",
              "putchar_unlocked", "fputs_unlocked", "fwrite_unlocked", "fputc_unlocked", "perror", "dprintf",
              "vdprintf"}
    assert not bypass & {s.split("@")[0] for s in undefined}
