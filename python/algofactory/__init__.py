"""AlgoFactory from Python: every algorithm of libAlgoFactory.so, described, run and called by name.

    import algofactory
    algofactory.algorithms()                      # names
    algofactory.describe("BandCompute").params    # keys, kinds, meanings, examples
    r = algofactory.run("BandCompute", CalculationExp="(b2-b1)/(b2+b1)", Images=[a, a], Bands="3|4",
                        OutputFile="ndvi.tif", dataType=6, progress=True)
    r = algofactory.call("ExcuteAlgo_ImgClassPostSta", "classes.img", "report.txt")
    r.success, r.code, r.message, r.outputs, r.lines

The library is found through ALGOFACTORY_LIBRARY (the library or its folder), ALGOFACTORY_BUILD_DIR
(a build folder: <dir>/bin), or beside the package.
"""
from ._library import LibraryNotFound, library_path
from ._runner import AlgoFailed, ParameterError, Result, call, entry_kinds, run
from .descriptions import Algorithm, Param, UnknownAlgorithm, algorithms, describe

__all__ = ["algorithms", "describe", "run", "call", "entry_kinds", "library_path", "Result", "Algorithm", "Param",
           "AlgoFailed", "ParameterError", "UnknownAlgorithm", "LibraryNotFound"]
