"""`algofactory batch`: a chain of real algorithms, bad lines, dependencies, the report, --resume, --index and
the time limit, checked against numbers computed here with GDAL and numpy. Usage: batch_host_test.py BUILD_DIR"""
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

try:
    import numpy
    from osgeo import gdal
except ImportError:
    print("skipped: GDAL's Python bindings or numpy are missing")
    sys.exit(77)

BUILD = os.path.abspath(sys.argv.pop(1) if len(sys.argv) > 1 else "build")
HOST = os.path.join(BUILD, "bin", "algofactory")
SAMPLE = os.path.join(os.path.dirname(__file__), "..", "..", "data", "samples", "L7_ETMs.tif")
gdal.UseExceptions()


def band(path, number=1):
    dataset = gdal.Open(path)  # kept while its band is read
    return dataset.GetRasterBand(number).ReadAsArray().astype(numpy.float64)


def batch(folder, lines, *options):
    path = os.path.join(folder, "jobs.jsonl")
    with open(path, "w") as handle:
        handle.write("\n".join(line if isinstance(line, str) else json.dumps(line) for line in lines) + "\n")
    run = subprocess.run([HOST, "batch", path, *options], capture_output=True, text=True, timeout=240)
    report_path = path + ".report.jsonl"
    for i, option in enumerate(options):
        if option in ("--report", "--resume") and options[i + 1] != "-":
            report_path = options[i + 1]
    report = {}
    if os.path.exists(report_path):
        with open(report_path) as handle:
            for row in handle:
                entry = json.loads(row)
                report[entry["id"]] = entry
    return run, report


def ndvi_line(folder, ident="ndvi", images=None):
    return {"id": ident, "algorithm": "BandCompute",
            "params": {"CalculationExp": "(b2-b1)/(b2+b1)", "Images": images or SAMPLE + "|" + SAMPLE,
                       "Bands": "3|4", "OutputFile": os.path.join(folder, ident + ".tif"), "dataType": 6}}


class BatchHost(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="batch-test-")
        self.addCleanup(shutil.rmtree, self.folder, True)

    def test_chain_bad_lines_and_not_run_lines(self):
        f = self.folder
        lines = [
            ndvi_line(f),
            # A chain through the reference: the ndvi scaled, then resampled to 100 columns.
            {"id": "scaled", "algorithm": "BandCompute",
             "params": {"CalculationExp": "b1*100", "Images": "$ndvi.OutputFile", "Bands": "1",
                        "OutputFile": os.path.join(f, "scaled.tif"), "dataType": 6}},
            {"id": "small", "entry": "ExcuteAlgo_ImageResample",
             "args": ["$scaled.OutputFile", os.path.join(f, "small.tif"), 0, 0, 100]},
            "{this is not json",
            {"id": "nope", "algorithm": "NoSuchAlgorithm", "params": {}},
            {"id": "broken", "algorithm": "BandCompute",
             "params": {"CalculationExp": "b1", "Images": os.path.join(f, "missing.tif"), "Bands": "1",
                        "OutputFile": os.path.join(f, "broken.tif")}},
            {"id": "after-broken", "algorithm": "BandCompute",
             "params": {"CalculationExp": "b1", "Images": "$broken.OutputFile", "Bands": "1",
                        "OutputFile": os.path.join(f, "after.tif")}},
            {"id": "orphan", "algorithm": "BandCompute", "params": {"Images": "$ghost.OutputFile"}},
        ]
        run, report = batch(f, lines, "--jobs", "2")
        self.assertEqual(run.returncode, 1, run.stderr)
        self.assertEqual(len(report), 8)

        # Pixel values against numpy: NDVI of bands 3 and 4, times 100.
        red, nir = band(SAMPLE, 3), band(SAMPLE, 4)
        with numpy.errstate(divide="ignore", invalid="ignore"):
            expected = ((nir - red) / (nir + red)).astype(numpy.float32).astype(numpy.float64) * 100
        got = band(os.path.join(f, "scaled.tif"))
        valid = numpy.isfinite(expected)
        self.assertLess(numpy.max(numpy.abs(got[valid] - expected[valid])), 1e-3)
        self.assertEqual(gdal.Open(os.path.join(f, "small.tif")).RasterXSize, 100)
        for ident in ("ndvi", "scaled", "small"):
            self.assertTrue(report[ident]["success"], report[ident])
            self.assertEqual((report[ident]["status"], report[ident]["code"], report[ident]["message"]),
                             ("succeeded", 0, ""))
            self.assertGreater(report[ident]["seconds"], 0)

        self.assertFalse(report["4"]["success"])
        self.assertTrue(report["4"]["message"].startswith("line 4 is not a JSON object ("), report["4"])
        self.assertFalse(report["nope"]["success"])
        self.assertEqual(report["nope"]["message"], "Can not find the Algo! Please check your algoname!")
        self.assertEqual(report["broken"]["message"], '"%s" does not exists!' % os.path.join(f, "missing.tif"))
        self.assertEqual(report["after-broken"]["status"], "not run")
        self.assertEqual(report["after-broken"]["message"],
                         'not run: the line with id "broken" it depends on failed')
        self.assertEqual(report["orphan"]["message"],
                         'line 8: no line has the id "ghost" (in "$ghost.OutputFile")')
        self.assertFalse(os.path.exists(os.path.join(f, "broken.tif")))
        self.assertFalse(os.path.exists(os.path.join(f, "after.tif")))
        self.assertIn("line 6 (id broken) failed", run.stderr)

        # --resume: what succeeded is carried over without running again; the failures run again.
        stamp = os.stat(os.path.join(f, "small.tif")).st_mtime_ns
        report_path = os.path.join(f, "jobs.jsonl.report.jsonl")
        run, again = batch(f, lines, "--resume", report_path)
        self.assertEqual(run.returncode, 1)
        self.assertEqual(os.stat(os.path.join(f, "small.tif")).st_mtime_ns, stamp)
        self.assertEqual(again["small"], report["small"])
        self.assertEqual(again["broken"]["message"], report["broken"]["message"])
        self.assertEqual(len(again), 8)

    def test_index_runs_one_line_with_references_from_the_parameters(self):
        f = self.folder
        lines = [ndvi_line(f),
                 {"id": "scaled", "algorithm": "BandCompute",
                  "params": {"CalculationExp": "b1*2", "Images": "$ndvi.OutputFile", "Bands": "1",
                             "OutputFile": os.path.join(f, "scaled.tif"), "dataType": 6}}]
        run, report = batch(f, lines, "--index", "2", "--report", "-")
        self.assertEqual(run.returncode, 1)  # ndvi.tif is not there yet: its own message
        entry = json.loads(run.stdout)
        self.assertEqual(entry["message"], '"%s" does not exists!' % os.path.join(f, "ndvi.tif"))
        self.assertFalse(os.path.exists(os.path.join(f, "ndvi.tif")))
        run, _ = batch(f, lines, "--index", "1", "--report", "-")
        self.assertEqual(run.returncode, 0, run.stderr)
        run, _ = batch(f, lines, "--index", "2", "--report", "-")
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertEqual([json.loads(row)["id"] for row in run.stdout.splitlines()], ["scaled"])
        numpy.testing.assert_allclose(band(os.path.join(f, "scaled.tif")), band(os.path.join(f, "ndvi.tif")) * 2)
        run, _ = batch(f, lines, "--index", "7")
        self.assertEqual(run.returncode, 2)
        self.assertIn("line 7 of", run.stderr)

    def huge_line(self, ident="huge"):
        # The sample stretched to 60000 x 60000 pixels in one virtual raster: far more work than any test waits.
        vrt = os.path.join(self.folder, "huge.vrt")
        with open(vrt, "w") as handle:
            handle.write('<VRTDataset rasterXSize="60000" rasterYSize="60000"><VRTRasterBand dataType="Byte" band="1">'
                         '<SimpleSource><SourceFilename>%s</SourceFilename><SourceBand>1</SourceBand>'
                         '<DstRect xOff="0" yOff="0" xSize="60000" ySize="60000"/></SimpleSource>'
                         '</VRTRasterBand></VRTDataset>' % os.path.abspath(SAMPLE))
        out = os.path.join(self.folder, ident + ".tif")
        return out, {"id": ident, "algorithm": "BandCompute",
                     "params": {"CalculationExp": "b1*2", "Images": vrt, "Bands": "1", "OutputFile": out, "dataType": 6}}

    def start_until_written(self, lines, out, *options):
        """Starts a batch and returns it once `out` exists (the long line is writing), with its report path."""
        path = os.path.join(self.folder, "jobs.jsonl")
        with open(path, "w") as handle:
            handle.write("".join(json.dumps(line) + "\n" for line in lines))
        batch = subprocess.Popen([HOST, "batch", path, *options], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 text=True)
        for _ in range(1200):  # bounded: at most about two minutes
            if os.path.exists(out) or batch.poll() is not None:
                break
            time.sleep(0.1)
        self.assertTrue(os.path.exists(out), "the long line never wrote its output")
        return batch, path + ".report.jsonl"

    @staticmethod
    def report_of(path):
        with open(path) as handle:
            return {entry["id"]: entry for entry in map(json.loads, handle)}

    def test_a_line_over_its_time_limit_is_killed_and_its_output_removed(self):
        out, huge = self.huge_line()
        run, report = batch(self.folder, [huge, ndvi_line(self.folder)], "--timeout", "2", "--jobs", "2")
        self.assertEqual(run.returncode, 1)
        self.assertEqual(report["huge"]["message"], "stopped after the time limit of 2 s")
        self.assertEqual(report["huge"]["outputs"], {})
        self.assertFalse(os.path.exists(out))
        self.assertTrue(report["ndvi"]["success"])

    def test_a_crash_costs_its_line_only_and_ctrl_c_stops_the_batch_cleanly(self):
        out, huge = self.huge_line()
        batch_run, report_path = self.start_until_written([huge, ndvi_line(self.folder)], out, "--jobs", "1")
        with open("/proc/%d/task/%d/children" % (batch_run.pid, batch_run.pid)) as handle:
            child = int(handle.read().split()[0])
        os.kill(child, signal.SIGKILL)  # as the kernel's out-of-memory killer would (a sanitizer would catch SIGSEGV)
        batch_run.communicate(timeout=120)
        self.assertEqual(batch_run.returncode, 1)
        report = self.report_of(report_path)
        self.assertEqual(report["huge"]["message"], "the process ended on signal 9 (Killed)")
        self.assertFalse(os.path.exists(out))
        self.assertTrue(report["ndvi"]["success"])  # the next line ran on

        os.remove(os.path.join(self.folder, "ndvi.tif"))
        batch_run, report_path = self.start_until_written([huge, ndvi_line(self.folder)], out, "--jobs", "1")
        batch_run.send_signal(signal.SIGINT)
        _, err = batch_run.communicate(timeout=120)
        self.assertEqual(batch_run.returncode, 1)
        self.assertIn("batch stopped", err)
        report = self.report_of(report_path)
        self.assertEqual(report["huge"]["message"], "stopped: the batch was interrupted")
        self.assertNotIn("ndvi", report)  # not started: not reported, so --resume runs it
        self.assertFalse(os.path.exists(out))
        self.assertFalse(os.path.exists(os.path.join(self.folder, "ndvi.tif")))

    def test_usage_errors(self):
        for args in (["batch"], ["batch", "x.jsonl", "--jobs"], ["batch", "x.jsonl", "--jobs", "-1"],
                     ["batch", "x.jsonl", "--frobnicate"], ["batch", os.path.join(self.folder, "absent.jsonl")]):
            run = subprocess.run([HOST, *args], capture_output=True, text=True, timeout=60)
            self.assertEqual(run.returncode, 2, args)


if __name__ == "__main__":
    if not os.path.exists(HOST):
        print("skipped: no host at " + HOST)
        sys.exit(77)
    unittest.main()
