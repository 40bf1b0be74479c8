"""A small chain on the bundled Landsat 7 scene: NDVI, K-means, sieve, class statistics, and a figure.

Run from the repository after the build:
    PYTHONPATH=python /usr/bin/python3 python/examples/landsat_chain.py [output folder]
"""
import sys
from pathlib import Path

import algofactory

ROOT = Path(__file__).resolve().parents[2]
SCENE = str(ROOT / "data" / "samples" / "L7_ETMs.tif")
out = Path(sys.argv[1] if len(sys.argv) > 1 else "landsat_chain")
out.mkdir(parents=True, exist_ok=True)

# %% NDVI from the red (3) and near-infrared (4) bands, as Float32.
ndvi = out / "ndvi.tif"
algofactory.run("BandCompute", CalculationExp="(b2-b1)/(b2+b1)", Images=[SCENE, SCENE], Bands="3|4",
                OutputFile=ndvi, dataType=6, progress=True)

# %% Five K-means classes over the six reflective bands, then regions under 20 pixels merged away.
classes, sieved = out / "kmeans.img", out / "kmeans_sieved.img"
algofactory.call("KmeansClassification", SCENE, str(classes), "0|1|2|3|4|5", 5, 20, 0.01, progress=True)
algofactory.run("ImgClassPostSieve", InputFile=classes, OutputFile=sieved, FirstValue=20, SecondValue=8)

# %% The statistics report of the sieved classes.
report = out / "class_statistics.txt"
result = algofactory.run("ImgClassPostSta", InputFile=sieved, ReportFile=report)
print(result.outputs or "report:", report)
print(Path(str(report)).read_text(errors="replace")[:1500])

# %% The figure: NDVI beside the sieved classes in their own colours.
import matplotlib
matplotlib.use("Agg")
import matplotlib.pyplot as plt
from matplotlib.colors import ListedColormap
from osgeo import gdal

ndvi_dataset, class_dataset = gdal.Open(str(ndvi)), gdal.Open(str(sieved))  # kept open while bands are used
ndvi_values = ndvi_dataset.GetRasterBand(1).ReadAsArray()
band = class_dataset.GetRasterBand(1)
labels = band.ReadAsArray()
table = band.GetColorTable()
colours = [[c / 255 for c in table.GetColorEntry(i)[:3]] for i in range(table.GetCount())] if table else None

figure, (left, right) = plt.subplots(1, 2, figsize=(10, 5))
shown = left.imshow(ndvi_values, cmap="RdYlGn", vmin=-1, vmax=1)
left.set_title("NDVI")
figure.colorbar(shown, ax=left, shrink=0.7)
right.imshow(labels, cmap=ListedColormap(colours) if colours else "tab10", interpolation="nearest",
             vmin=0, vmax=(len(colours) - 1) if colours else None)
right.set_title("K-means, sieved")
for axis in (left, right):
    axis.set_axis_off()
figure.tight_layout()
figure.savefig(out / "landsat_chain.png", dpi=100)
print("figure:", out / "landsat_chain.png")
