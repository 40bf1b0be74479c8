"""The plug-in object QGIS loads: adds and removes the provider."""
from qgis.core import QgsApplication

from .provider import AlgoFactoryProvider


class AlgoFactoryPlugin:
    def __init__(self, iface):
        self.iface = iface
        self.provider = None

    def initProcessing(self):
        self.provider = AlgoFactoryProvider()
        QgsApplication.processingRegistry().addProvider(self.provider)

    def initGui(self):
        self.initProcessing()

    def unload(self):
        if self.provider is not None:
            QgsApplication.processingRegistry().removeProvider(self.provider)
            self.provider = None
