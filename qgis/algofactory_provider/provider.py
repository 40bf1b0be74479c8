"""The "AlgoFactory" Processing provider: one algorithm per description."""
from qgis.core import QgsMessageLog, QgsProcessingProvider

from .algorithm import AlgoFactoryAlgorithm


class AlgoFactoryProvider(QgsProcessingProvider):
    def id(self):
        return "algofactory"

    def name(self):
        return "AlgoFactory"

    def longName(self):
        return "AlgoFactory remote-sensing algorithms"

    def loadAlgorithms(self):
        try:
            import algofactory
            descriptions = [algofactory.describe(name) for name in algofactory.algorithms()]
        except Exception as error:  # a provider without algorithms, and why, rather than a broken QGIS
            QgsMessageLog.logMessage("AlgoFactory algorithms not available: %s" % error, "AlgoFactory")
            return
        for description in descriptions:
            self.addAlgorithm(AlgoFactoryAlgorithm(description))
