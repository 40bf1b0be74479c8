"""The Processing provider, headless through qgis_process, and its parameter rules on their own."""
import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "qgis" / "algofactory_provider"))
SAMPLE = ROOT / "data" / "samples" / "L7_ETMs.tif"

from widget_rules import widget_for  # noqa: E402  (the plug-in's folder, imported without QGIS)


def test_parameter_rules_on_real_meanings():
    assert widget_for("KernelSize", "int", "odd window size 3-33").kind == "integer"
    assert (widget_for("KernelSize", "int", "odd window size 3-33").minimum,
            widget_for("KernelSize", "int", "odd window size 3-33").maximum) == (3, 33)
    extra = widget_for("Extra", "int", "median window shape: 0 square, 1 cross")
    assert extra.kind == "enum" and [v for v, _ in extra.options] == [0, 1]
    types = widget_for("dataType", "int", "output pixel type, GDAL numbering: 1 Byte, 2 UInt16, 3 Int16, 4 UInt32, "
                                          "5 Int32, 6 Float32, 7 Float64; below 1 means 1")
    assert [v for v, _ in types.options] == [1, 2, 3, 4, 5, 6, 7]
    assert widget_for("SecondValue", "int", "neighbourhood: 4 or 8").kind == "integer"
    assert widget_for("Threshold", "double", "stop when ...; in (0, 1]").maximum == 1
    assert widget_for("InputFile", "text", "input raster (required)", "/d/a.tif").kind == "raster"
    assert widget_for("Images", "text", "input rasters separated by |", "/d/a.tif|/d/a.tif").kind == "layers"
    assert widget_for("OutputFile", "text", "output classification; format from the suffix", "/d/k.img").kind \
        == "raster_out"
    assert widget_for("ReportFile", "text", "report path; '.txt' is appended", "/d/r.txt").kind == "file_out"
    assert widget_for("OutputDir", "text", "output folder").kind == "folder_out"
    assert widget_for("ShpFile", "text", "input shapefile", "/d/a.shp").kind == "vector"
    assert widget_for("Method", "text", 'one of "global" or "local"').options == [("global", "global"),
                                                                                   ("local", "local")]
    assert widget_for("Bands", "text", '0-based band numbers separated by \'|\' ("0|1|2")').kind == "string"


def _qgis_process():
    for name in ("qgis_process.bin", "qgis_process"):  # Debian's wrapper passes an option 3.22 refuses
        found = shutil.which(name)
        if found:
            return found
    return None


@pytest.fixture(scope="module")
def qgis(tmp_path_factory):
    program = _qgis_process()
    if not program:
        pytest.skip("qgis_process is not installed")
    build = Path(os.environ.get("ALGOFACTORY_BUILD_DIR", ROOT / "build"))
    if not (build / "bin" / "libAlgoFactory.so").is_file():
        pytest.skip("the library is not built")
    config = tmp_path_factory.mktemp("qgis_config")
    plugins = config / "profiles" / "default" / "python" / "plugins"
    plugins.mkdir(parents=True)
    (plugins / "algofactory_provider").symlink_to(ROOT / "qgis" / "algofactory_provider")
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", QGIS_CUSTOM_CONFIG_PATH=str(config),
               ALGOFACTORY_BUILD_DIR=str(build), XDG_RUNTIME_DIR=str(config))

    def run(*args):
        return subprocess.run([program, *args], env=env, cwd=str(config), capture_output=True, text=True,
                              timeout=300)
    enabled = run("plugins", "enable", "algofactory_provider")
    assert enabled.returncode == 0, enabled.stdout + enabled.stderr
    return run


@pytest.fixture(scope="module")
def L7(tmp_path_factory):
    # A copy: opening a layer in QGIS writes statistics (.aux.xml) beside the raster.
    copy = tmp_path_factory.mktemp("scene") / "L7_ETMs.tif"
    shutil.copy(SAMPLE, copy)
    return str(copy)


def _run(qgis, algorithm, **values):
    args = ["--json", "run", "algofactory:" + algorithm, "--"]
    for key, value in values.items():
        for item in value if isinstance(value, list) else [value]:
            args.append("%s=%s" % (key, item))
    done = qgis(*args)
    assert done.returncode == 0, done.stdout[-2000:] + done.stderr[-2000:]
    return json.loads(done.stdout[done.stdout.index("{"):])


def test_provider_lists_every_algorithm_in_groups(qgis):
    listed = qgis("--json", "list")
    assert listed.returncode == 0, listed.stderr
    catalogue = json.loads(listed.stdout[listed.stdout.index("{"):])
    ours = catalogue["providers"]["algofactory"]
    assert ours["name"] == "AlgoFactory"
    described = {p.stem.lower() for p in (ROOT / "Model" / "abd").glob("*.json")}
    assert {a.split(":")[1] for a in ours["algorithms"]} == described
    groups = {a["group"] for a in ours["algorithms"].values()}
    assert {"Band math", "Classification", "Image processing"} <= groups


def test_band_math_filter_and_classification_through_processing(qgis, L7, tmp_path):
    gdal = pytest.importorskip("osgeo.gdal")
    np = pytest.importorskip("numpy")
    ndvi = tmp_path / "ndvi.tif"
    # dataType is an enumeration of GDAL codes 1..7: option 5 is code 6, Float32.
    result = _run(qgis, "bandcompute", CalculationExp="(b2-b1)/(b2+b1)", Images=[L7, L7], Bands="3|4",
                  OutputFile=str(ndvi), dataType=5)
    assert result["results"]["OutputFile"] == str(ndvi)
    source = gdal.Open(L7)
    red, nir = (source.GetRasterBand(b).ReadAsArray().astype(np.float64) for b in (3, 4))
    with np.errstate(divide="ignore", invalid="ignore"):
        expected = (nir - red) / (nir + red)
    written = gdal.Open(str(ndvi))  # kept: a band outlives a dataset that is not referenced
    got = written.GetRasterBand(1)
    assert got.DataType == gdal.GDT_Float32
    finite = np.isfinite(expected)
    assert np.allclose(got.ReadAsArray()[finite], expected[finite], atol=1e-6)

    median = tmp_path / "median.tif"
    result = _run(qgis, "imgprofiltspamid", InputFile=L7, OutputFile=str(median), KernelSize=3, Bands="1",
                  Mode=0, Extra=0)
    band = source.GetRasterBand(1).ReadAsArray()
    centre = np.median([band[9 + dy, 20 + dx] for dy in (-1, 0, 1) for dx in (-1, 0, 1)])
    filtered = gdal.Open(str(median))
    assert filtered.GetRasterBand(1).ReadAsArray()[9, 20] == centre

    classes = tmp_path / "kmeans.img"
    _run(qgis, "kmeansclassification", InputFile=L7, OutputFile=str(classes), Bands="0|1|2|3|4|5",
         ExpectedClasses=4, Option=10, Threshold=0.01)
    classified = gdal.Open(str(classes))
    labels = classified.GetRasterBand(1).ReadAsArray()
    assert labels.shape == (352, 349) and 2 <= len(np.unique(labels)) <= 5


def test_a_refused_run_fails_cleanly(qgis, L7, tmp_path):
    out = tmp_path / "x.tif"
    done = qgis("run", "algofactory:imgprofiltspamid", "--", "InputFile=%s" % L7, "OutputFile=%s" % out,
                "KernelSize=3", "Bands=9")
    assert done.returncode != 0
    assert not out.exists()


def test_output_lines_become_processing_results(qgis, tmp_path):
    scene = tmp_path / "scene.tif"  # this algorithm writes beside its input
    shutil.copy(SAMPLE, scene)
    result = _run(qgis, "statisticalanalysis", InputFile=str(scene), Region="0|348|0|351", Bands="0|2")
    printed = result["results"]
    for key, suffix in (("OutTextFile", "-StatisticalText.txt"), ("OutCovImgFile", "-CovImageFile.tif")):
        assert printed[key] == str(tmp_path / ("scene" + suffix))
        assert Path(printed[key]).is_file()
