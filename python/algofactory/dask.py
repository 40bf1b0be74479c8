"""Runs an AlgoFactory batch file on a Dask distributed cluster, one task per line.

    python3 -m algofactory.dask FILE --scheduler tcp://host:8786 [--retries N] [--timeout S] [--report R]

    from dask.distributed import Client
    from algofactory.dask import run_batch
    report = run_batch(Client("tcp://host:8786"), "jobs.jsonl", retries=1)

A line is {"algorithm": NAME, "params": {...}} or {"entry": NAME, "args": [...]}, with an optional "id" (the
line number otherwise). A text "$id.Key" stands for the output Key of the line named id (its [OUTPUT] line, or
else the parameter Key it was given); such a reference makes that line a dependency of the task. Each task runs
the command-line host (`algofactory batch` on the one resolved line, in a process of its own with a time limit),
so a worker needs only the installed library, and paths must mean the same on every worker (a shared file
system, or /vsis3/, /vsigs/, /vsiaz/ paths). The report has one entry per line: id, line, success, status, code,
message, outputs, seconds - the same as `algofactory batch` writes.
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

REFERENCE = re.compile(r"\$([A-Za-z0-9_-]+)\.([A-Za-z0-9_]+)")


class LineFailed(Exception):
    """A line ran and failed; carries its report entry (so that Dask may retry the task)."""

    def __init__(self, entry):
        super().__init__(entry["message"])
        self.entry = entry

    def __reduce__(self):
        return (LineFailed, (self.entry,))


def host_path(host=None):
    """The command-line host: host, ALGOFACTORY_HOST, ALGOFACTORY_BUILD_DIR/bin/algofactory, or PATH."""
    candidates = [host, os.environ.get("ALGOFACTORY_HOST")]
    if os.environ.get("ALGOFACTORY_BUILD_DIR"):
        candidates.append(os.path.join(os.environ["ALGOFACTORY_BUILD_DIR"], "bin", "algofactory"))
    for candidate in candidates:
        if candidate and os.access(candidate, os.X_OK):
            return candidate
    found = shutil.which("algofactory")
    if not found:
        raise FileNotFoundError("the algofactory host is not found: set ALGOFACTORY_HOST or pass host=")
    return found


def _entry(line, message, status="failed"):
    return {"id": line["id"], "line": line["number"], "success": False, "status": status, "code": -1,
            "message": message, "outputs": {}, "seconds": 0.0}


def _references(value):
    if isinstance(value, str):
        return [m.groups() for m in REFERENCE.finditer(value)]
    if isinstance(value, list):
        return [r for item in value for r in _references(item)]
    if isinstance(value, dict):
        return [r for item in value.values() for r in _references(item)]
    return []


def _substitute(value, lookup):
    if isinstance(value, str):
        return REFERENCE.sub(lambda m: lookup(m.group(1), m.group(2)), value)
    if isinstance(value, list):
        return [_substitute(item, lookup) for item in value]
    if isinstance(value, dict):
        return {key: _substitute(item, lookup) for key, item in value.items()}
    return value


def _parse_line(text, number):
    line = {"number": number, "id": str(number), "call": None, "error": None, "references": []}
    try:
        obj = json.loads(text)
    except ValueError as error:
        line["error"] = "line %d is not a JSON object (%s)" % (number, error)
        return line
    if not isinstance(obj, dict):
        line["error"] = "line %d is not a JSON object" % number
        return line
    if "id" in obj:
        if isinstance(obj["id"], bool) or not isinstance(obj["id"], (str, int, float)) or obj["id"] == "":
            line["error"] = 'line %d: "id" must be a non-empty text or a number' % number
            return line
        line["id"] = obj["id"] if isinstance(obj["id"], str) else "%g" % obj["id"]
    if ("algorithm" in obj) == ("entry" in obj):
        line["error"] = 'line %d needs either "algorithm" with "params" or "entry" with "args"' % number
        return line
    kind = "entry" if "entry" in obj else "algorithm"
    if not isinstance(obj[kind], str) or not obj[kind]:
        line["error"] = 'line %d: "%s" must be a non-empty text' % (number, kind)
        return line
    body = "args" if kind == "entry" else "params"
    value = obj.get(body, [] if kind == "entry" else {})
    if not isinstance(value, list if kind == "entry" else dict):
        line["error"] = 'line %d: "%s" must be %s' % (number, body, "an array" if kind == "entry" else "a JSON object")
        return line
    if kind == "entry" and not all(isinstance(arg, (str, int, float, bool)) for arg in value):
        line["error"] = 'line %d: every item of "args" must be a text, a number or a boolean' % number
        return line
    line["call"] = {kind: obj[kind], body: value}
    line["references"] = _references(value)
    return line


def parse_batch(text):
    """The lines of a batch file, each a dict (number, id, call, error, references, dependencies)."""
    lines = []
    for number, row in enumerate(text.split("\n"), start=1):
        row = row.strip()
        if row and not row.startswith("#"):
            lines.append(_parse_line(row, number))
    by_id = {}
    for index, line in enumerate(lines):
        if line["id"] in by_id:
            line["error"] = line["error"] or 'line %d: the id "%s" is already used on line %d' % (
                line["number"], line["id"], lines[by_id[line["id"]]]["number"])
        else:
            by_id[line["id"]] = index
    for line in lines:
        line["dependencies"] = []
        for ref_id, key in line["references"]:
            if ref_id not in by_id:
                line["error"] = line["error"] or 'line %d: no line has the id "%s" (in "$%s.%s")' % (
                    line["number"], ref_id, ref_id, key)
            elif by_id[ref_id] not in line["dependencies"]:
                line["dependencies"].append(by_id[ref_id])
    _mark_cycles(lines)
    return lines


def _mark_cycles(lines):
    state = [0] * len(lines)

    def visit(index, stack):
        state[index] = 1
        stack.append(index)
        for nxt in lines[index]["dependencies"]:
            if state[nxt] == 1:
                cycle = stack[stack.index(nxt):]
                ids = " -> ".join([lines[i]["id"] for i in cycle] + [lines[nxt]["id"]])
                for i in cycle:
                    lines[i]["error"] = lines[i]["error"] or "line %d: its references form a cycle (%s)" % (
                        lines[i]["number"], ids)
            elif state[nxt] == 0:
                visit(nxt, stack)
        stack.pop()
        state[index] = 2

    for index in range(len(lines)):
        if state[index] == 0:
            visit(index, [])


def resolve_call(line, dependencies):
    """The line's call with every "$id.Key" replaced from the dependencies' results (dicts of id, call and
    report entry): the referenced line's [OUTPUT] Key, else its parameter Key."""
    known = {dep["id"]: dep for dep in dependencies}

    def lookup(ref_id, key):
        dep = known[ref_id]
        if key in dep["entry"]["outputs"]:
            return dep["entry"]["outputs"][key]
        params = dep["call"].get("params", {})
        if key in params:
            return str(params[key])
        raise LineFailed(_entry(line, 'line %d: "$%s.%s" names neither an output nor a parameter of that line'
                                % (line["number"], ref_id, key)))

    return _substitute(line["call"], lookup)


def run_line(line, dependencies, timeout=3600, host=None):
    """Runs one parsed line (a Dask task): references resolved from the dependencies, the host's batch command
    on that line alone. Returns its report entry; raises LineFailed when the line failed, so that the
    scheduler's retries apply."""
    return _run_call(line, resolve_call(line, dependencies), timeout, host)


def _run_call(line, call, timeout, host):
    with tempfile.TemporaryDirectory(prefix="algofactory-task-") as folder:
        batch = os.path.join(folder, "line.jsonl")
        report = os.path.join(folder, "report.jsonl")
        with open(batch, "w", encoding="utf-8") as handle:
            handle.write(json.dumps(dict(call, id=line["id"])) + "\n")
        command = [host_path(host), "batch", batch, "--jobs", "1", "--quiet", "--timeout", str(timeout),
                   "--report", report]
        subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       check=False)
        try:
            with open(report, encoding="utf-8") as handle:
                entry = json.loads(handle.readline())
        except (OSError, ValueError):
            raise LineFailed(_entry(line, "the host wrote no report for the line"))
    entry["line"] = line["number"]
    if not entry["success"]:
        raise LineFailed(entry)
    return entry


def _task(line, timeout, host, *dependencies):
    # Dependencies that ran arrive only when they succeeded (a failure errs the dependents); the others are
    # lines that could not run at all, or resumed ones.
    failed = [dep for dep in dependencies if not dep["entry"]["success"]]
    if failed:
        return {"id": line["id"], "call": line["call"], "entry": _entry(
            line, 'not run: the line with id "%s" it depends on failed' % failed[0]["id"], "not run")}
    call = resolve_call(line, dependencies)
    return {"id": line["id"], "call": call, "entry": _run_call(line, call, timeout, host)}


def run_batch(client, batch, retries=0, timeout=3600, host=None, resume=None):
    """Runs a batch (a file path, or its text when it contains a line end) on a dask.distributed Client and
    returns the report entries in line order once every line is done. A failed line is run again up to
    `retries` times; a line whose dependency failed is reported "not run"; `resume` is a list of report
    entries (or a report path) whose succeeded ids are not run again."""
    if "\n" in batch:
        text = batch
    else:
        with open(batch, encoding="utf-8") as handle:
            text = handle.read()
    lines = parse_batch(text)
    done = {}
    if resume:
        entries = resume
        if isinstance(resume, str):
            with open(resume, encoding="utf-8") as handle:
                entries = [json.loads(row) for row in handle if row.strip()]
        done = {e["id"]: e for e in entries if e.get("success")}
    results = [None] * len(lines)
    futures = {}
    order = _topological(lines)
    for index in order:
        line = lines[index]
        if line["id"] in done:
            results[index] = {"id": line["id"], "call": line["call"], "entry": done[line["id"]]}
            continue
        if line["error"]:
            results[index] = {"id": line["id"], "call": line["call"], "entry": _entry(line, line["error"])}
            continue
        deps = [futures.get(d, results[d]) for d in line["dependencies"]]
        futures[index] = client.submit(_task, line, timeout, host, *deps, key="algofactory-line-%d-%s" % (
            line["number"], os.urandom(4).hex()), retries=retries, pure=False)
    for index, future in futures.items():
        try:
            results[index] = future.result()
        except LineFailed as failure:
            entry = failure.entry
            if entry["id"] != lines[index]["id"]:  # the failure of a line this one depends on
                entry = _entry(lines[index], 'not run: the line with id "%s" it depends on failed' % entry["id"],
                               "not run")
            results[index] = {"entry": entry}
        except Exception as error:  # a lost worker after its retries, or a task that could not run
            results[index] = {"entry": _entry(lines[index], "the task failed: %s" % error)}
    return [result["entry"] for result in results]


def _topological(lines):
    order, seen = [], set()

    def visit(index):
        if index in seen:
            return
        seen.add(index)
        if not lines[index]["error"]:
            for dep in lines[index]["dependencies"]:
                visit(dep)
        order.append(index)

    for index in range(len(lines)):
        visit(index)
    return order


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m algofactory.dask",
                                     description="Run an AlgoFactory batch file on a Dask distributed scheduler.")
    parser.add_argument("file", help="JSON Lines batch file")
    parser.add_argument("--scheduler", required=True, help="scheduler address, e.g. tcp://10.0.0.5:8786")
    parser.add_argument("--retries", type=int, default=0, help="runs of a failed line again (default 0)")
    parser.add_argument("--timeout", type=float, default=3600, help="time limit of a line in seconds (default 3600)")
    parser.add_argument("--connect-timeout", type=float, default=10,
                        help="seconds to wait for the scheduler (default 10)")
    parser.add_argument("--report", help="JSON Lines report (default FILE.report.jsonl)")
    parser.add_argument("--resume", help="report whose succeeded ids are not run again")
    parser.add_argument("--host", help="the algofactory host on the workers (default: found on each worker)")
    options = parser.parse_args(argv)
    from distributed import Client
    try:
        client = Client(options.scheduler, timeout=options.connect_timeout)
    except (OSError, TimeoutError, ValueError) as error:
        print("algofactory.dask: cannot reach the scheduler at %s within %g s (%s)"
              % (options.scheduler, options.connect_timeout, error), file=sys.stderr)
        return 2
    try:
        report = run_batch(client, options.file, options.retries, options.timeout, options.host, options.resume)
    finally:
        client.close()
    path = options.report or options.file + ".report.jsonl"
    with open(path, "w", encoding="utf-8") as handle:
        for entry in report:
            handle.write(json.dumps(entry) + "\n")
    failed = [entry for entry in report if not entry["success"]]
    for entry in failed:
        print("algofactory.dask: line %d (id %s) %s: %s" % (entry["line"], entry["id"], entry["status"],
                                                           entry["message"]), file=sys.stderr)
    print("algofactory.dask: %d of %d lines succeeded; report %s" % (len(report) - len(failed), len(report), path),
          file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
