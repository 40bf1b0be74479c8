"""Running algorithms: argument checks, the call with output capture, progress and cancellation."""
import ctypes
import json
import numbers
import operator
import os
import re
import sys
from dataclasses import dataclass, field
from typing import Dict, List

from . import _library
from .descriptions import UnknownAlgorithm, describe

OUTPUT_LINE = re.compile(r'\[OUTPUT\] ([^=\s]+)="(.*)"')
LONG_RANGE = (-2 ** 31, 2 ** 31 - 1)


class ParameterError(ValueError):
    """An argument the algorithm does not take, of the wrong kind, or missing."""


class AlgoFailed(RuntimeError):
    """A run that returned false; .result holds its code, message and printed lines."""

    def __init__(self, result):
        super().__init__("%s failed (code %d): %s" % (result.name, result.code,
                                                       result.message or (result.lines[-1] if result.lines else "no message")))
        self.result = result


@dataclass
class Result:
    name: str
    success: bool
    code: int
    message: str
    outputs: Dict[str, object] = field(default_factory=dict)  # [OUTPUT] values; "a|b" lists split
    lines: List[str] = field(default_factory=list)            # everything else the library printed
    cancelled: bool = False

    def __bool__(self):
        return self.success


# --- argument conversion -------------------------------------------------------------------------

def _text(key, value):
    if isinstance(value, (list, tuple)):
        return "|".join(_text(key, v) for v in value)
    if isinstance(value, os.PathLike):
        value = os.fspath(value)
    if isinstance(value, bytes):
        return os.fsdecode(value)
    if isinstance(value, str):
        if "\0" in value:
            raise ParameterError("%s: a text cannot hold a NUL character" % key)
        return value
    if isinstance(value, bool) or not isinstance(value, numbers.Number):
        raise ParameterError("%s takes a text, not %s %r" % (key, type(value).__name__, value))
    return str(value)


def _integer(key, kind, value):
    if isinstance(value, bool) or isinstance(value, float):
        raise ParameterError("%s takes an integer (%s), not %r" % (key, kind, value))
    try:
        number = operator.index(value)
    except TypeError:
        raise ParameterError("%s takes an integer (%s), not %s %r" % (key, kind, type(value).__name__, value)) from None
    if not LONG_RANGE[0] <= number <= LONG_RANGE[1]:
        raise ParameterError("%s (%d) does not fit a 32-bit %s" % (key, number, kind))
    return number


def _real(key, kind, value):
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        raise ParameterError("%s takes a number (%s), not %s %r" % (key, kind, type(value).__name__, value))
    return float(value)


def convert(key, kind, value):
    """value checked against kind, as the JSON value (int, float or str) the library expects."""
    if kind in ("int", "long"):
        return _integer(key, kind, value)
    if kind in ("float", "double"):
        return _real(key, kind, value)
    return _text(key, value)


def _as_argument(value):
    return repr(value) if isinstance(value, float) else str(value)


# --- the call ------------------------------------------------------------------------------------

class _Progress:
    """Adapts a Python callable (fraction, message) -> bool|None to the C progress callback."""

    def __init__(self, progress, name):
        self.callable = _progress_callable(progress, name)
        self.cancelled = False
        self.error = None
        self.c_callback = _library.ProgressCallback(self._called)

    def _called(self, percent, message, _user):
        if self.cancelled:
            return -1
        try:
            text = os.fsdecode(message) if message else ""
            if self.callable is not None and self.callable(max(0.0, min(1.0, percent / 100.0)), text) is False:
                self.cancelled = True
        except BaseException as error:  # Ctrl-C or a failing callable: stop the run, raise after it
            self.cancelled = True
            self.error = error
        return -1 if self.cancelled else 0

    def close(self):
        closer = getattr(self.callable, "close", None)
        if closer:
            closer()


def _progress_callable(progress, name):
    if progress is None or progress is False:
        return None
    if progress is True:
        try:
            from tqdm import tqdm
        except ImportError:
            return _TextProgress(name)
        return _TqdmProgress(tqdm, name)
    if not callable(progress):
        raise ParameterError("progress must be a callable (fraction, message), True or None")
    return progress


class _TqdmProgress:
    def __init__(self, tqdm, name):
        self.bar = tqdm(total=100, desc=name, unit="%")

    def __call__(self, fraction, message):
        self.bar.n = round(fraction * 100, 1)
        if message:
            self.bar.set_postfix_str(message, refresh=False)
        self.bar.refresh()

    def close(self):
        self.bar.close()


class _TextProgress:
    def __init__(self, name):
        self.name = name
        self.shown = -1

    def __call__(self, fraction, message):
        percent = int(fraction * 100)
        if percent // 10 != self.shown // 10:
            self.shown = percent
            print("%s: %d%% %s" % (self.name, percent, message), file=sys.stderr, flush=True)

    def close(self):
        pass


def _invoke(name, function, progress, check, echo):
    """Runs function(record) with this thread's output captured; builds the Result."""
    lib = _library.library()
    pieces = []

    def output(data, length, _user):
        text = ctypes.string_at(data, length)
        pieces.append(text)
        if echo:
            sys.stdout.write(os.fsdecode(text))

    sink = _library.OutputCallback(output)
    adapter = _Progress(progress, name)
    record = _library.AlgoResult()
    record.callback = adapter.c_callback
    lib.AlgoFactory_SetThreadOutput(sink, None)
    try:
        ok = bool(function(ctypes.byref(record)))
    finally:
        lib.AlgoFactory_SetThreadOutput(_library.OutputCallback(), None)
        adapter.close()
    if adapter.error is not None:
        raise adapter.error
    printed = os.fsdecode(b"".join(pieces))
    outputs, lines = {}, []
    for line in printed.splitlines():
        match = OUTPUT_LINE.search(line)
        if not match:
            if line.strip():
                lines.append(line)
            continue
        before = line[:match.start()]
        if before.strip():
            lines.append(before)
        key, value = match.group(1), match.group(2)
        value = value.split("|") if "|" in value else value
        if key in outputs:  # a key printed more than once collects its values
            previous = outputs[key] if isinstance(outputs[key], list) else [outputs[key]]
            value = previous + (value if isinstance(value, list) else [value])
        outputs[key] = value
    result = Result(name, ok, int(record.code), os.fsdecode(record.message), outputs, lines,
                    adapter.cancelled)
    if check and not ok:
        raise AlgoFailed(result)
    return result


def run(name, progress=None, check=True, echo=False, **params):
    """Runs algorithm `name` with its parameters by key; returns a Result (raises AlgoFailed on
    failure unless check=False). progress: a callable (fraction, message) - returning False stops
    the run - or True for a bar. echo=True also prints the library's output."""
    algorithm = describe(name)
    values = {}
    for key, value in params.items():
        param = algorithm.param(key)
        if param is None:
            raise ParameterError("%s has no parameter %r (its keys: %s)" % (algorithm.name, key,
                                                                            ", ".join(algorithm.keys)))
        values[key] = convert(key, param.kind, value)
    missing = [p.key for p in algorithm.params if p.required and p.key not in values]
    if missing:
        raise ParameterError("%s needs %s" % (algorithm.name, ", ".join(missing)))
    if algorithm.route == "direct":
        # Not in the dispatch table: the entry takes the parameters in their description's order.
        args = [values.get(p.key, _default(p)) for p in algorithm.params]
        return _call_entry(algorithm.name, algorithm.entry, args, progress, check, echo)
    text = json.dumps(values, ensure_ascii=True).encode("ascii")
    lib = _library.library()
    encoded = algorithm.name.encode("ascii")
    return _invoke(algorithm.name, lambda record: lib.ExcuteAlgo(encoded, text, record), progress, check, echo)


def _default(param):
    return 0 if param.kind in ("int", "long") else 0.0 if param.kind in ("float", "double") else ""


def entry_kinds(entry):
    """The argument kinds of an exported entry (["json"] for JSON-text entries), or None."""
    kinds = _library.library().AlgoFactory_EntryKinds(entry.encode("ascii", "replace"))
    return None if kinds is None else [k for k in kinds.decode("ascii").split(",") if k]


def call(entry, *args, progress=None, check=True, echo=False):
    """Calls an exported entry (for example "ExcuteAlgo_BandCompute", or "BandCompute") with its
    arguments in order, converted by the entry's kinds. Returns a Result like run()."""
    name = entry if entry.startswith("ExcuteAlgo_") else "ExcuteAlgo_" + entry
    kinds = entry_kinds(name)
    if kinds is None:
        raise UnknownAlgorithm("no entry named %r" % entry)
    if kinds == ["json"]:
        if len(args) != 1:
            raise ParameterError("%s takes one JSON object (a dict or its text), %d given" % (name, len(args)))
        value = args[0]
        args = [value if isinstance(value, str) else json.dumps(value, ensure_ascii=True)]
        kinds = ["text"]
    if len(args) != len(kinds):
        raise ParameterError("%s takes %d arguments (%s), %d given" % (name, len(kinds), ", ".join(kinds), len(args)))
    keys = _argument_names(name, len(kinds))
    converted = [convert(key, kind, value) for key, kind, value in zip(keys, kinds, args)]
    return _call_entry(name[len("ExcuteAlgo_"):], name, converted, progress, check, echo)


def _argument_names(entry, count):
    try:
        params = describe(entry).params
    except (UnknownAlgorithm, OSError):
        params = ()
    names = [p.key for p in params][:count]
    return names + ["argument %d" % (i + 1) for i in range(len(names), count)]


def _call_entry(name, entry, values, progress, check, echo):
    lib = _library.library()
    encoded = [os.fsencode(_as_argument(v)) for v in values]
    argv = (ctypes.c_char_p * max(1, len(encoded)))(*encoded)
    entry_name = entry.encode("ascii")
    return _invoke(name, lambda record: lib.AlgoFactory_CallEntry(entry_name, len(encoded), argv, record),
                   progress, check, echo)
