"""Remote inputs through GDAL's virtual file systems: a tiled GeoTIFF with overviews served by an HTTP server on
the loopback address (range requests), read by band math and thumbnails through /vsicurl/ and compared pixel for
pixel with the same runs on the local file; a 404 and a file that is not a raster give their messages, also as
batch lines. Usage: vsi_inputs_test.py BUILD_DIR"""
import http.server
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
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
MAX_REQUESTS = 2000
gdal.UseExceptions()


class RangeHandler(http.server.BaseHTTPRequestHandler):
    """GET and HEAD of the files of one folder, with single byte ranges; nothing else."""
    folder = None
    requests = 0
    ranged = 0

    def log_message(self, *args):
        pass

    def do_HEAD(self):
        self.answer(body=False)

    def do_GET(self):
        self.answer(body=True)

    def answer(self, body):
        type(self).requests += 1
        name = os.path.basename(self.path.split("?")[0])
        path = os.path.join(self.folder, name)
        if type(self).requests > MAX_REQUESTS or not name or not os.path.isfile(path):
            self.send_response(404 if type(self).requests <= MAX_REQUESTS else 503)
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        with open(path, "rb") as handle:
            data = handle.read()
        match = re.fullmatch(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
        if match:
            type(self).ranged += 1
            start = int(match.group(1))
            end = min(int(match.group(2)) if match.group(2) else len(data) - 1, len(data) - 1)
            part = data[start:end + 1]
            self.send_response(206)
            self.send_header("Content-Range", "bytes %d-%d/%d" % (start, end, len(data)))
        else:
            part = data
            self.send_response(200)
        self.send_header("Accept-Ranges", "bytes")
        self.send_header("Content-Length", str(len(part)))
        self.end_headers()
        if body:
            self.wfile.write(part)


def host_env():
    env = dict(os.environ)
    for key in ("http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"):
        env.pop(key, None)
    env.update(NO_PROXY="127.0.0.1", GDAL_HTTP_TIMEOUT="20", GDAL_HTTP_MAX_RETRY="0",
               GDAL_DISABLE_READDIR_ON_OPEN="EMPTY_DIR", CPL_VSIL_CURL_CACHE_SIZE="1000000")
    return env


def read(path, number=1):
    dataset = gdal.Open(path)
    return dataset.GetRasterBand(number).ReadAsArray()


class RemoteInputs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="vsi-test-")
        served = os.path.join(cls.folder, "served")
        os.mkdir(served)
        cls.local = os.path.join(served, "scene.tif")
        gdal.Translate(cls.local, SAMPLE, creationOptions=["TILED=YES", "BLOCKXSIZE=64", "BLOCKYSIZE=64"])
        dataset = gdal.Open(cls.local, gdal.GA_Update)
        dataset.BuildOverviews("AVERAGE", [2, 4])
        dataset = None
        with open(os.path.join(served, "notes.tif"), "w") as handle:
            handle.write("this is not a raster\n" * 20)
        RangeHandler.folder = served
        cls.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), RangeHandler)
        cls.thread = threading.Thread(target=cls.server.serve_forever, kwargs={"poll_interval": 0.1}, daemon=True)
        cls.thread.start()
        cls.remote = "/vsicurl/http://127.0.0.1:%d/scene.tif" % cls.server.server_address[1]

    @classmethod
    def tearDownClass(cls):
        cls.server.shutdown()
        cls.server.server_close()
        cls.thread.join(10)
        shutil.rmtree(cls.folder, ignore_errors=True)

    def run_host(self, *args, cwd=None):
        return subprocess.run([HOST, *args], capture_output=True, text=True, timeout=120, env=host_env(),
                              cwd=cwd or self.folder)

    def band_compute(self, image, out):
        return self.run_host("run", "BandCompute", json.dumps(
            {"CalculationExp": "(b2-b1)/(b2+b1)", "Images": image + "|" + image, "Bands": "3|4", "OutputFile": out,
             "dataType": 6}))

    def test_band_math_reads_the_remote_file_by_ranges(self):
        before = RangeHandler.ranged
        remote_out, local_out = (os.path.join(self.folder, name) for name in ("remote.tif", "local.tif"))
        run = self.band_compute(self.remote, remote_out)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        self.assertEqual(self.band_compute(self.local, local_out).returncode, 0)
        self.assertGreater(RangeHandler.ranged, before)  # read through range requests, not one download
        numpy.testing.assert_array_equal(read(remote_out), read(local_out))
        red, nir = read(SAMPLE, 3).astype(numpy.float64), read(SAMPLE, 4).astype(numpy.float64)
        with numpy.errstate(divide="ignore", invalid="ignore"):
            expected = (nir - red) / (nir + red)
        valid = numpy.isfinite(expected)
        self.assertLess(numpy.max(numpy.abs(read(remote_out)[valid] - expected[valid])), 1e-6)

    def test_thumbnail_of_the_remote_file_matches_the_local_one(self):
        pictures, folders = {}, {}
        for name, path in (("remote", self.remote), ("local", self.local)):
            cwd = os.path.join(self.folder, "thumbs-" + name)
            os.mkdir(cwd)
            run = self.run_host("run", "CreateThumb", json.dumps({"imagePaths": [path], "maxHeight": 64}), cwd=cwd)
            self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
            outputs = dict(re.findall(r'^\[OUTPUT\] (\w+)="(.*)"$', run.stdout, re.M))
            self.assertTrue(os.path.isfile(outputs["thumbImage"]), run.stdout)
            pictures[name] = gdal.Open(outputs["thumbImage"]).ReadAsArray()
            folders[name] = os.path.dirname(os.path.dirname(outputs["thumbImage"]))
        # The local thumbnail lies beside its raster; the remote one, with no folder of ours, under the working one.
        self.assertTrue(os.path.samefile(folders["local"], os.path.dirname(self.local)))
        self.assertTrue(os.path.samefile(folders["remote"], os.path.join(self.folder, "thumbs-remote")))
        self.assertEqual(pictures["remote"].shape, pictures["local"].shape)
        numpy.testing.assert_array_equal(pictures["remote"], pictures["local"])

    def test_missing_and_unreadable_remote_inputs_fail_their_batch_line_only(self):
        base = self.remote.rsplit("/", 1)[0]
        missing, notes = base + "/absent.tif", base + "/notes.tif"
        lines = [{"id": "missing", "algorithm": "BandCompute",
                  "params": {"CalculationExp": "b1", "Images": missing, "Bands": "1",
                             "OutputFile": os.path.join(self.folder, "missing-out.tif")}},
                 {"id": "notes", "algorithm": "BandCompute",
                  "params": {"CalculationExp": "b1", "Images": notes, "Bands": "1",
                             "OutputFile": os.path.join(self.folder, "notes-out.tif")}},
                 {"id": "fine", "algorithm": "BandCompute",
                  "params": {"CalculationExp": "b1", "Images": self.remote, "Bands": "1",
                             "OutputFile": os.path.join(self.folder, "fine-out.tif"), "dataType": 1}}]
        batch = os.path.join(self.folder, "remote.jsonl")
        with open(batch, "w") as handle:
            handle.write("".join(json.dumps(line) + "\n" for line in lines))
        run = self.run_host("batch", batch, "--report", "-", "--jobs", "2")
        self.assertEqual(run.returncode, 1)
        report = {entry["id"]: entry for entry in map(json.loads, run.stdout.splitlines())}
        self.assertEqual(report["missing"]["message"], '"%s" does not exists!' % missing)
        self.assertEqual(report["notes"]["message"], 'Can not open "%s"!' % notes)
        self.assertTrue(report["fine"]["success"], report["fine"])
        numpy.testing.assert_array_equal(read(os.path.join(self.folder, "fine-out.tif")), read(SAMPLE, 1))
        for name in ("missing-out.tif", "notes-out.tif"):
            self.assertFalse(os.path.exists(os.path.join(self.folder, name)))


if __name__ == "__main__":
    if not os.path.exists(HOST):
        print("skipped: no host at " + HOST)
        sys.exit(77)
    unittest.main()
