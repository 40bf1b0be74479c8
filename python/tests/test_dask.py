"""The Dask runner on a LocalCluster of two worker processes: a chain of real algorithms over the bundled
samples with a deliberately failing line (and a line after it), retries, and an unreachable scheduler.
Usage: test_dask.py [BUILD_DIR], or through pytest (ALGOFACTORY_BUILD_DIR, else ../../build)."""
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, ".."))
if __name__ == "__main__" and len(sys.argv) > 1:
    os.environ["ALGOFACTORY_BUILD_DIR"] = os.path.abspath(sys.argv.pop(1))
BUILD = os.environ.get("ALGOFACTORY_BUILD_DIR") or os.path.join(HERE, "..", "..", "build")
SAMPLE = os.path.join(HERE, "..", "..", "data", "samples", "L7_ETMs.tif")
HOST = os.environ.get("ALGOFACTORY_HOST") or os.path.join(BUILD, "bin", "algofactory")
# The workers are processes of their own: they find the host and import the runner as this process does.
os.environ["ALGOFACTORY_HOST"] = HOST
os.environ.setdefault("QT_QPA_PLATFORM", "offscreen")
os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [os.path.join(HERE, ".."), os.environ.get("PYTHONPATH")]))

try:
    import numpy
    from osgeo import gdal
    from distributed import Client, LocalCluster
    MISSING = None if os.access(HOST, os.X_OK) else "no host at " + HOST
except ImportError as error:
    MISSING = str(error)

from algofactory import dask as af_dask  # noqa: E402

if not MISSING:
    gdal.UseExceptions()
    import dask.config
    # A loaded machine starts worker processes slowly: generous connection time-outs (they bound, not pace, the test).
    dask.config.set({"distributed.comm.timeouts.connect": "120s", "distributed.comm.timeouts.tcp": "120s"})


def read(path, number=1):
    dataset = gdal.Open(path)
    return dataset.GetRasterBand(number).ReadAsArray().astype(numpy.float64)


def closed_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@unittest.skipIf(MISSING, MISSING or "")
class DaskRunner(unittest.TestCase):
    def test_chain_failure_and_retries_on_a_local_cluster(self):
        folder = tempfile.mkdtemp(prefix="dask-test-")
        self.addCleanup(shutil.rmtree, folder, True)
        out = lambda name: os.path.join(folder, name)  # noqa: E731
        lines = [
            {"id": "ndvi", "algorithm": "BandCompute",
             "params": {"CalculationExp": "(b2-b1)/(b2+b1)", "Images": SAMPLE + "|" + SAMPLE, "Bands": "3|4",
                        "OutputFile": out("ndvi.tif"), "dataType": 6}},
            {"id": "small", "entry": "ImageResample", "args": ["$ndvi.OutputFile", out("small.tif"), 0, 0, 50]},
            {"id": "diff", "algorithm": "BandCompute",
             "params": {"CalculationExp": "b1-b2", "Images": "$ndvi.OutputFile|" + SAMPLE, "Bands": "1|1",
                        "OutputFile": out("diff.tif"), "dataType": 6}},
            {"id": "broken", "algorithm": "BandCompute",
             "params": {"CalculationExp": "b1", "Images": out("absent.tif"), "Bands": "1",
                        "OutputFile": out("broken.tif")}},
            {"id": "after", "algorithm": "BandCompute",
             "params": {"CalculationExp": "b1", "Images": "$broken.OutputFile", "Bands": "1",
                        "OutputFile": out("after.tif")}},
            {"id": "loop", "algorithm": "BandCompute", "params": {"Images": "$loop.OutputFile"}},
        ]
        batch = out("jobs.jsonl")
        with open(batch, "w") as handle:
            handle.write("".join(json.dumps(line) + "\n" for line in lines) + "not json\n")

        with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                          dashboard_address=None) as cluster, Client(cluster) as client:
            report = af_dask.run_batch(client, batch, retries=1, timeout=120)
        by_id = {entry["id"]: entry for entry in report}
        self.assertEqual([entry["line"] for entry in report], [1, 2, 3, 4, 5, 6, 7])
        for ident in ("ndvi", "small", "diff"):
            self.assertTrue(by_id[ident]["success"], by_id[ident])
        red, nir = read(SAMPLE, 3), read(SAMPLE, 4)
        with numpy.errstate(divide="ignore", invalid="ignore"):
            ndvi = ((nir - red) / (nir + red)).astype(numpy.float32).astype(numpy.float64)
        valid = numpy.isfinite(ndvi)
        self.assertLess(numpy.max(numpy.abs(read(out("diff.tif"))[valid] - (ndvi - read(SAMPLE, 1))[valid])), 1e-4)
        self.assertEqual(gdal.Open(out("small.tif")).RasterXSize, 50)

        self.assertEqual(by_id["broken"]["message"], '"%s" does not exists!' % out("absent.tif"))
        self.assertEqual((by_id["after"]["status"], by_id["after"]["message"]),
                         ("not run", 'not run: the line with id "broken" it depends on failed'))
        self.assertEqual(by_id["loop"]["message"], "line 6: its references form a cycle (loop -> loop)")
        self.assertTrue(by_id["7"]["message"].startswith("line 7 is not a JSON object"))
        self.assertFalse(os.path.exists(out("broken.tif")) or os.path.exists(out("after.tif")))

        # The same file again with the report to resume from: only the failures run again.
        stamp = os.stat(out("small.tif")).st_mtime_ns
        with LocalCluster(n_workers=1, threads_per_worker=1, processes=False, dashboard_address=None) as cluster, \
                Client(cluster) as client:
            again = af_dask.run_batch(client, batch, resume=report)
        self.assertEqual(os.stat(out("small.tif")).st_mtime_ns, stamp)
        self.assertEqual({e["id"]: e for e in again}["small"], by_id["small"])

    def test_an_unreachable_scheduler_ends_with_a_message(self):
        folder = tempfile.mkdtemp(prefix="dask-test-")
        self.addCleanup(shutil.rmtree, folder, True)
        batch = os.path.join(folder, "jobs.jsonl")
        with open(batch, "w") as handle:
            handle.write('{"algorithm": "BandCompute", "params": {}}\n')
        address = "tcp://127.0.0.1:%d" % closed_port()
        run = subprocess.run([sys.executable, "-m", "algofactory.dask", batch, "--scheduler", address,
                              "--connect-timeout", "2"], capture_output=True, text=True, timeout=120)
        self.assertEqual(run.returncode, 2, run.stderr)
        self.assertIn("algofactory.dask: cannot reach the scheduler at %s within 2 s" % address, run.stderr)
        self.assertFalse(os.path.exists(batch + ".report.jsonl"))


if __name__ == "__main__":
    unittest.main()
