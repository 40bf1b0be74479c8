"""QGIS plug-in entry: registers the AlgoFactory Processing provider."""
import os
import sys
from pathlib import Path


def _package_path():
    # The plug-in folder is a link to qgis/algofactory_provider of a checkout (or a copy with the
    # package beside it); ALGOFACTORY_PYTHON names another folder holding the algofactory package.
    explicit = os.environ.get("ALGOFACTORY_PYTHON")
    if explicit:
        return Path(explicit)
    here = Path(__file__).resolve().parent
    for folder in (here, here.parent.parent / "python"):
        if (folder / "algofactory" / "__init__.py").is_file():
            return folder
    return here


def classFactory(iface):
    path = str(_package_path())
    if path not in sys.path:
        sys.path.insert(0, path)
    from .plugin import AlgoFactoryPlugin
    return AlgoFactoryPlugin(iface)
