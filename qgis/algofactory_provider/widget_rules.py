"""Which Processing parameter a described parameter becomes (no QGIS import: tested on its own)."""
import re
from dataclasses import dataclass, field
from typing import List, Optional, Tuple

RASTER_SUFFIXES = (".tif", ".tiff", ".img", ".dat", ".hdr", ".vrt", ".bsq", ".raw")
VECTOR_SUFFIXES = (".shp", ".geojson", ".json", ".gpkg", ".kml")


@dataclass
class Widget:
    kind: str  # raster, vector, file, folder, layers, string, integer, double, enum,
    #            raster_out, vector_out, file_out, folder_out
    minimum: Optional[float] = None
    maximum: Optional[float] = None
    options: List[Tuple[object, str]] = field(default_factory=list)  # (value passed on, label)
    extension: str = ""


def _example_suffix(example):
    text = str(example or "").split("|")[0].lower()
    match = re.search(r"\.[a-z0-9]+$", text)
    return match.group(0) if match else ""


def _numeric_options(meaning):
    """"0 square, 1 cross" style lists: at least two codes, each with a word, codes rising."""
    items = re.findall(r"(?:^|[:;,]\s*|\(\s*)(-?\d+) ([A-Za-z][A-Za-z0-9 /+'-]*?)(?=\s*(?:,|;|\)|$))", meaning)
    codes = [int(code) for code, _ in items]
    if len(items) >= 2 and codes == sorted(set(codes)):
        return [(int(code), "%s: %s" % (code, label.strip())) for code, label in items]
    return []


def _word_options(meaning):
    words = re.findall(r'"([A-Za-z][\w-]*)"', meaning)
    if len(words) >= 2 and re.search(r'"\s*(?:,|or|\|)\s*"', meaning):
        unique = list(dict.fromkeys(words))
        return [(w, w) for w in unique]
    return []


def _range(meaning):
    for pattern in (r"\bin \[(-?[\d.]+),\s*(-?[\d.]+)\]", r"\bin \((-?[\d.]+),\s*(-?[\d.]+)\]",
                    r"(?<![\w.-])(-?\d+(?:\.\d+)?) to (-?\d+(?:\.\d+)?)\b",
                    r"(?<![\w.-])(\d+(?:\.\d+)?)-(\d+(?:\.\d+)?)(?![\w.-])"):
        match = re.search(pattern, meaning)
        if match:
            low, high = float(match.group(1)), float(match.group(2))
            if low < high:
                return low, high
    return None, None


def _is_output(key, meaning):
    lowered = meaning.lower()
    return key.lower().startswith("output") or lowered.startswith("output") or key in ("ReportFile",) \
        or lowered.startswith("report path")


def widget_for(key, kind, meaning, example=None):
    meaning = meaning or ""
    lowered = meaning.lower()
    if kind in ("int", "long", "float", "double"):
        options = _numeric_options(meaning) if kind in ("int", "long") else []
        if options:
            return Widget("enum", options=options)
        low, high = _range(meaning)
        return Widget("integer" if kind in ("int", "long") else "double", low, high)
    suffix = _example_suffix(example)
    folder = key.endswith(("Dir", "Path", "Folder")) or "folder" in lowered.split(";")[0] \
        or "directory" in lowered.split(";")[0]
    if _is_output(key, meaning):
        if folder:
            return Widget("folder_out")
        if suffix in VECTOR_SUFFIXES or "shapefile" in lowered.split(";")[0]:
            return Widget("vector_out", extension=suffix.lstrip(".") or "shp")
        if suffix in RASTER_SUFFIXES or "raster" in lowered or "classification" in lowered or "image" in lowered:
            return Widget("raster_out", extension=suffix.lstrip(".") or "tif")
        return Widget("file_out", extension=suffix.lstrip("."))
    if key.endswith(("File", "Files")) or key in ("Images", "Input") or folder:
        if folder:
            return Widget("folder")
        is_list = key.endswith("Files") or key == "Images" or "separated by |" in lowered
        if suffix in VECTOR_SUFFIXES or "vector" in lowered or "shapefile" in lowered:
            return Widget("vector") if not is_list else Widget("string")
        if suffix in RASTER_SUFFIXES or "raster" in lowered or "image" in lowered:
            return Widget("layers") if is_list else Widget("raster")
        return Widget("file", extension=suffix.lstrip("."))
    options = _word_options(meaning)
    if options:
        return Widget("enum", options=options)
    return Widget("string")
