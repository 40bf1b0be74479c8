"""Real runs on the bundled Landsat sample: values against numpy, progress, cancellation, threads."""
import threading

import pytest

from conftest import SAMPLES, read_band

L7 = str(SAMPLES / "L7_ETMs.tif")
np = pytest.importorskip("numpy")


def ndvi(af, output, **options):
    return af.run("BandCompute", CalculationExp="(b2-b1)/(b2+b1)", Images=[L7, L7], Bands="3|4",
                  OutputFile=str(output), dataType=6, **options)


def test_band_math_matches_numpy_and_prints_nothing_of_its_own(af, gdal, tmp_path, capfd):
    seen = []
    result = ndvi(af, tmp_path / "ndvi.tif", progress=lambda fraction, message: seen.append(fraction))
    assert result.success and result.code == 0 and result.outputs == {}
    assert capfd.readouterr().out == ""
    red, nir = (read_band(gdal, L7, b).astype(np.float64) for b in (3, 4))
    with np.errstate(divide="ignore", invalid="ignore"):
        expected = ((nir - red) / (nir + red)).astype(np.float32)
    got = read_band(gdal, tmp_path / "ndvi.tif")
    finite = np.isfinite(expected)
    assert np.allclose(got[finite], expected[finite], atol=1e-6)
    assert seen and seen == sorted(seen) and 0.0 <= seen[0] and seen[-1] <= 1.0


def test_median_filter_outputs_and_interior_values(af, gdal, tmp_path):
    out = tmp_path / "median.tif"
    result = af.run("ImgProFiltSpaMid", InputFile=L7, OutputFile=out, KernelSize=3, Bands=[2], Mode=0, Extra=0)
    assert result.success and result.outputs == {}  # the filter entries print no [OUTPUT] line
    band = read_band(gdal, L7, 2).astype(np.float64)
    windows = np.stack([band[1 + dy:band.shape[0] - 1 + dy, 1 + dx:band.shape[1] - 1 + dx]
                        for dy in (-1, 0, 1) for dx in (-1, 0, 1)])
    expected = np.median(windows, axis=0)
    got = read_band(gdal, out).astype(np.float64)[1:-1, 1:-1]
    assert np.array_equal(got, expected)


def test_cancelling_stops_the_run_and_leaves_no_file(af, tmp_path):
    out = tmp_path / "ndvi.tif"
    result = ndvi(af, out, progress=lambda fraction, message: False, check=False)
    assert result.cancelled and not result.success
    assert result.code == -2 and result.message == "The algorithm was cancelled by the user."
    assert not out.exists()

    class Stop(Exception):
        pass

    for raised in (Stop, KeyboardInterrupt):  # Ctrl-C arrives in the callback like any exception
        calls = []

        def failing(fraction, message):
            calls.append(fraction)
            raise raised()
        with pytest.raises(raised):
            ndvi(af, out, progress=failing)
        assert len(calls) == 1 and not out.exists()


def entropies(gdal, path):
    """Shannon entropy (bits) of each band's grey-level histogram, computed here with numpy."""
    dataset = gdal.Open(str(path))
    found = []
    for band in range(1, dataset.RasterCount + 1):
        _, counts = np.unique(dataset.GetRasterBand(band).ReadAsArray(), return_counts=True)
        p = counts / counts.sum()
        found.append(float(-(p * np.log2(p)).sum()))
    return found


def reported_entropies(path):
    rows = [line.split() for line in path.read_text().splitlines()[1:] if line.strip()]
    return [float(row[1]) for row in rows]


def test_non_ascii_paths_reach_the_library_intact(af, gdal, tmp_path):
    folder = tmp_path / "données é"
    folder.mkdir()
    result = af.call("ExcuteAlgo_InformationEntropy", L7, "", "", str(folder))
    text = folder / "L7_ETMs_inforentropy.txt"
    assert result.outputs == {"informationTxt": str(text), "informationPNG": str(folder / "L7_ETMs_inforentropy.png")}
    assert np.allclose(reported_entropies(text), entropies(gdal, L7), atol=1e-5)


def test_four_threads_each_capture_their_own_lines(af, gdal, tmp_path, capfd):
    results, errors = {}, []

    def work(index):
        try:
            folder = tmp_path / ("run_%d" % index)
            folder.mkdir()
            if index % 2:  # two different entries at once
                results[index] = af.run("ImgProFiltSpaMid", InputFile=L7, OutputFile=folder / "median.tif",
                                        KernelSize=3, Bands="1", Mode=0, Extra=0)
            else:
                results[index] = af.run("InformationEntropy", InputFile=L7, Region="", Bands="", OutputDir=folder)
        except BaseException as error:  # reported below, in the test's thread
            errors.append(error)

    threads = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    for thread in threads:
        thread.start()
    # Meanwhile a call without a sink (straight through ctypes) still prints on standard output.
    import ctypes
    lib = af._library.library()
    argv = (ctypes.c_char_p * 1)(b"x")
    lib.AlgoFactory_CallEntry(b"ExcuteAlgo_NoSuchEntry", 1, argv, None)
    for thread in threads:
        thread.join()
    assert not errors and len(results) == 4
    expected = entropies(gdal, L7)
    for index, result in results.items():
        folder = tmp_path / ("run_%d" % index)
        assert not any("run_%d" % other in line for other in range(4) if other != index for line in result.lines)
        if index % 2:
            assert result.outputs == {} and (folder / "median.tif").is_file()
            assert result.lines == ['start analyze the input paramenters: {"InputFile": "%s", "OutputFile": "%s", '
                                    '"KernelSize": 3, "Bands": "1", "Mode": 0, "Extra": 0}' % (L7, folder / "median.tif"),
                                    "start call algorithm plugin: ImgProFiltSpa"]
            continue
        assert result.outputs == {"informationTxt": str(folder / "L7_ETMs_inforentropy.txt"),
                                  "informationPNG": str(folder / "L7_ETMs_inforentropy.png")}
        assert np.allclose(reported_entropies(folder / "L7_ETMs_inforentropy.txt"), expected, atol=1e-5)
    printed = capfd.readouterr().out
    assert "[ERROR] No entry named ExcuteAlgo_NoSuchEntry" in printed and "run_" not in printed


def test_chain_kmeans_sieve_statistics(af, gdal, tmp_path):
    classes, sieved, report = tmp_path / "k.img", tmp_path / "s.img", tmp_path / "report.txt"
    af.call("ExcuteAlgo_KmeansClassification", L7, str(classes), "0|1|2|3|4|5", 4, 10, 0.01)
    af.run("ImgClassPostSieve", InputFile=classes, OutputFile=sieved, FirstValue=20, SecondValue=8)
    result = af.run("ImgClassPostSta", InputFile=sieved, ReportFile=report)
    assert result.success and report.exists()
    labels = read_band(gdal, sieved)
    values, counts = np.unique(labels, return_counts=True)
    assert counts.sum() == 349 * 352 and len(values) <= 5
    text = report.read_text(errors="replace")
    for count in counts:
        assert str(count) in text
