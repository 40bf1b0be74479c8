#!/usr/bin/env python3
"""Builds GF5_AHSI_SpeRes_ESUN.txt: the band-averaged extraterrestrial solar irradiance of each AHSI band.

ESUN(band) = integral(E(l) * S(l) dl) / integral(S(l) dl), with E the ASTM E-490 zero-air-mass solar
spectrum and S a Gaussian of the band's centre wavelength and FWHM (the AHSI spectral response files
give exactly these two numbers per band). E-490 is interpolated linearly onto a 0.05 nm grid first, so
the coarse steps of the table in the short-wave infrared do not bias narrow bands.

Usage: make_gf5_ahsi_esun.py [E490_FILE] [RESPONSE_DIR] [OUTPUT]
Defaults: Debian's python3-pyspectral data file, ../shared/data/gf5 beside the repository, and the
table next to this script.
"""
import math
import os
import sys

import numpy as np

HERE = os.path.dirname(os.path.abspath(__file__))
E490_DEFAULT = "/usr/lib/python3/dist-packages/pyspectral/data/e490_00a.dat"
RESPONSE_DEFAULT = os.path.normpath(os.path.join(HERE, "..", "..", "..", "shared", "data", "gf5"))
OUTPUT_DEFAULT = os.path.join(HERE, "GF5_AHSI_SpeRes_ESUN.txt")
DETECTORS = (("VNIR", "GF5B_AHSI_Spectralresponse_VNIR.raw", 150), ("SWIR", "GF5B_AHSI_Spectralresponse_SWIR.raw", 180))


def read_e490(path):
    data = np.loadtxt(path, comments="#")
    return data[:, 0] * 1000.0, data[:, 1]  # nm, W/(m2 um)


def read_response(path, expected):
    rows = []
    with open(path) as handle:
        for line in handle:
            line = line.strip()
            if line:
                centre, fwhm = line.split(",")[:2]
                rows.append((float(centre), float(fwhm)))
    if len(rows) != expected:
        raise SystemExit(f"{path}: {len(rows)} bands, expected {expected}")
    return rows


def band_esun(grid, irradiance, centre, fwhm):
    sigma = fwhm / (2.0 * math.sqrt(2.0 * math.log(2.0)))
    window = (grid > centre - 4 * sigma) & (grid < centre + 4 * sigma)
    weights = np.exp(-0.5 * ((grid[window] - centre) / sigma) ** 2)
    return float(np.trapz(irradiance[window] * weights, grid[window]) / np.trapz(weights, grid[window]))


def main():
    e490 = sys.argv[1] if len(sys.argv) > 1 else E490_DEFAULT
    responses = sys.argv[2] if len(sys.argv) > 2 else RESPONSE_DEFAULT
    output = sys.argv[3] if len(sys.argv) > 3 else OUTPUT_DEFAULT
    wavelength, irradiance = read_e490(e490)
    grid = np.arange(300.0, 2700.0, 0.05)
    fine = np.interp(grid, wavelength, irradiance)
    lines = [
        "# GF-5 AHSI band-averaged extraterrestrial solar irradiance (ESUN), W/(m2 um)",
        "# Solar spectrum: ASTM E-490 zero air mass (2000), file e490_00a.dat of Debian package python3-pyspectral",
        "# Spectral response: Gaussian of centre and FWHM per band from GF5B_AHSI_Spectralresponse_VNIR.raw (150 bands)",
        "#   and GF5B_AHSI_Spectralresponse_SWIR.raw (180 bands), the response files shipped in GF-5B AHSI products",
        "# Made by make_gf5_ahsi_esun.py beside this file",
        "# Columns: band (VNIR 1-150, then SWIR 151-330), detector, band of the detector, centre nm, FWHM nm, ESUN",
    ]
    band = 0
    for detector, name, expected in DETECTORS:
        for index, (centre, fwhm) in enumerate(read_response(os.path.join(responses, name), expected), start=1):
            band += 1
            esun = band_esun(grid, fine, centre, fwhm)
            lines.append(f"{band:3d} {detector} {index:3d} {centre:9.4f} {fwhm:6.3f} {esun:10.4f}")
    with open(output, "w") as handle:
        handle.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
