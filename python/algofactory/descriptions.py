"""The algorithm descriptions (Model/abd/*.json): keys, kinds, meanings, examples and outputs."""
import json
import os
import re
import threading
from dataclasses import dataclass
from pathlib import Path
from typing import List, Optional, Tuple

from . import _library

KINDS = ("text", "int", "long", "float", "double")


@dataclass(frozen=True)
class Param:
    key: str
    kind: str
    required: bool
    meaning: str
    example: object = None


@dataclass(frozen=True)
class Algorithm:
    name: str
    entry: str
    route: str          # "json", "json-text" (the entry parses the JSON itself) or "direct"
    plugin: str
    summary: str
    params: Tuple[Param, ...]
    outputs: Tuple[str, ...]
    notes: str
    subsystem: str = "Other"

    def param(self, key) -> Optional[Param]:
        return next((p for p in self.params if p.key == key), None)

    @property
    def keys(self) -> List[str]:
        return [p.key for p in self.params]


class UnknownAlgorithm(KeyError):
    def __str__(self):
        return self.args[0]


_lock = threading.Lock()
_cache = {}


def descriptions_dir() -> Path:
    """Model/abd beside the library's folder (bin/../Model/abd), else the source checkout's."""
    explicit = os.environ.get("ALGOFACTORY_MODEL_DIR")
    if explicit:
        return Path(explicit)
    for library in _library.candidate_paths():
        folder = library.parent.parent / "Model" / "abd"
        if library.is_file() and folder.is_dir():
            return folder
    return Path(__file__).resolve().parent.parent.parent / "Model" / "abd"


# The subsystem of an entry, from the header that declares it (include/algofactory/entries_<x>.h).
SUBSYSTEM_TITLES = {
    "bandmath": "Band math",
    "catalogue": "Image catalogue",
    "hyperspectral": "Hyperspectral",
    "imageproc": "Image processing",
    "classification": "Classification",
    "utilities": "Data utilities",
    "sar": "Radar import",
    "polsar": "Polarimetry and radar",
}


def _subsystems(model_dir: Path):
    found = {}
    for include in (model_dir.parent.parent / "include" / "algofactory",
                    model_dir.parent.parent.parent / "include" / "algofactory",
                    Path(__file__).resolve().parent.parent.parent / "include" / "algofactory"):
        if not include.is_dir():
            continue
        for header in sorted(include.glob("entries_*.h")):
            title = SUBSYSTEM_TITLES.get(header.stem[len("entries_"):], header.stem[len("entries_"):])
            for entry in re.findall(r"\b(ExcuteAlgo_\w+)\s*\(", header.read_text(errors="replace")):
                found.setdefault(entry, title)
        break
    return found


def _read(folder: Path):
    if not folder.is_dir():
        raise _library.LibraryNotFound("the algorithm descriptions were not found at %s" % folder)
    subsystems = _subsystems(folder)
    algorithms = {}
    for path in sorted(folder.glob("*.json")):
        data = json.loads(path.read_text(encoding="utf-8"))
        params = tuple(Param(p["key"], p["kind"], bool(p.get("required", False)), p.get("meaning", ""),
                             p.get("example")) for p in data.get("params", []))
        algorithm = Algorithm(data["algorithm"], data["entry"], data.get("route", "json"), data.get("plugin", ""),
                              data.get("summary", ""), params, tuple(data.get("outputs", [])),
                              data.get("notes", ""), subsystems.get(data["entry"], "Other"))
        algorithms[algorithm.name] = algorithm
    return algorithms


def all_descriptions():
    folder = descriptions_dir()
    with _lock:
        if folder not in _cache:
            _cache[folder] = _read(folder)
        return _cache[folder]


def algorithms() -> List[str]:
    """Names of every described algorithm, sorted."""
    return sorted(all_descriptions())


def describe(name: str) -> Algorithm:
    """The description of an algorithm, by its name or its entry's name."""
    table = all_descriptions()
    if name in table:
        return table[name]
    if str(name).startswith("ExcuteAlgo_") and name[len("ExcuteAlgo_"):] in table:
        return table[name[len("ExcuteAlgo_"):]]
    for algorithm in table.values():
        if algorithm.entry == name:
            return algorithm
    close = [n for n in table if n.lower() == str(name).lower()]
    hint = " (did you mean %s?)" % close[0] if close else ""
    raise UnknownAlgorithm("no algorithm named %r%s" % (name, hint))
