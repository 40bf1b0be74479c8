"""Points the package at the build folder of this checkout unless told otherwise."""
import os
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "python"))
if not os.environ.get("ALGOFACTORY_LIBRARY"):
    os.environ.setdefault("ALGOFACTORY_BUILD_DIR", str(ROOT / "build"))

SAMPLES = ROOT / "data" / "samples"


@pytest.fixture(scope="session")
def af():
    import algofactory
    try:
        algofactory.library_path()
    except algofactory.LibraryNotFound as error:
        pytest.skip(str(error))
    return algofactory


@pytest.fixture(scope="session")
def gdal():
    return pytest.importorskip("osgeo.gdal")


def read_band(gdal, path, band=1):
    dataset = gdal.Open(str(path))
    assert dataset is not None, path
    return dataset.GetRasterBand(band).ReadAsArray()


@pytest.fixture(autouse=True)
def _run_in_a_scratch_folder(tmp_path, monkeypatch):
    # ExcuteAlgo appends its run log, AlgoFactor_log.txt, to the current folder.
    monkeypatch.chdir(tmp_path)
