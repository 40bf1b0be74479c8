"""One Processing algorithm built from an algorithm's description."""
import os

from qgis.core import (QgsMapLayer, QgsProcessing, QgsProcessingAlgorithm, QgsProcessingContext, QgsProcessingException,
                       QgsProcessingParameterDefinition, QgsProcessingParameterEnum, QgsProcessingParameterFile,
                       QgsProcessingParameterFileDestination, QgsProcessingParameterFolderDestination,
                       QgsProcessingParameterMultipleLayers, QgsProcessingParameterNumber,
                       QgsProcessingParameterRasterDestination, QgsProcessingParameterRasterLayer,
                       QgsProcessingParameterString, QgsProcessingParameterVectorDestination,
                       QgsProcessingParameterVectorLayer)

from .widget_rules import widget_for

RASTER_SUFFIXES = (".tif", ".tiff", ".img", ".dat", ".vrt")

DESTINATIONS = ("raster_out", "vector_out", "file_out", "folder_out")


def _parameter(param, widget):
    key, label, optional = param.key, "%s: %s" % (param.key, param.meaning.split(";")[0][:80]), not param.required
    kind = widget.kind
    if kind == "raster":
        made = QgsProcessingParameterRasterLayer(key, label, optional=optional)
    elif kind == "vector":
        made = QgsProcessingParameterVectorLayer(key, label, [QgsProcessing.TypeVectorAnyGeometry], optional=optional)
    elif kind == "layers":
        made = QgsProcessingParameterMultipleLayers(key, label, QgsProcessing.TypeRaster, optional=optional)
    elif kind in ("file", "folder"):
        behavior = QgsProcessingParameterFile.Folder if kind == "folder" else QgsProcessingParameterFile.File
        made = QgsProcessingParameterFile(key, label, behavior, optional=optional)
    elif kind == "integer" or kind == "double":
        number = QgsProcessingParameterNumber.Integer if kind == "integer" else QgsProcessingParameterNumber.Double
        made = QgsProcessingParameterNumber(key, label, number, optional=optional)
        if widget.minimum is not None:
            made.setMinimum(widget.minimum)
            made.setMaximum(widget.maximum)
    elif kind == "enum":
        made = QgsProcessingParameterEnum(key, label, [text for _, text in widget.options], optional=optional)
    elif kind == "raster_out":
        made = QgsProcessingParameterRasterDestination(key, label, optional=optional)
    elif kind == "vector_out":
        made = QgsProcessingParameterVectorDestination(key, label, optional=optional)
    elif kind == "file_out":
        filters = "%s files (*.%s)" % (widget.extension.upper(), widget.extension) if widget.extension else ""
        made = QgsProcessingParameterFileDestination(key, label, filters, optional=optional)
    elif kind == "folder_out":
        made = QgsProcessingParameterFolderDestination(key, label, optional=optional)
    else:
        made = QgsProcessingParameterString(key, label, optional=optional)
    made.setHelp(param.meaning)
    return made


def _layer_path(value):
    return value.source().split("|")[0] if isinstance(value, QgsMapLayer) else str(value)


class AlgoFactoryAlgorithm(QgsProcessingAlgorithm):
    def __init__(self, description):
        super().__init__()
        self.description = description
        self.widgets = {p.key: widget_for(p.key, p.kind, p.meaning, p.example) for p in description.params}

    def createInstance(self):
        return AlgoFactoryAlgorithm(self.description)

    def name(self):
        return self.description.name.lower()

    def displayName(self):
        return self.description.name

    def group(self):
        return self.description.subsystem

    def groupId(self):
        return self.description.subsystem.lower().replace(" ", "_")

    def shortHelpString(self):
        d = self.description
        keys = "".join("<li><b>%s</b> (%s%s): %s</li>" % (p.key, p.kind, ", required" if p.required else "", p.meaning)
                       for p in d.params)
        outputs = ("<p>[OUTPUT] keys: %s</p>" % ", ".join(d.outputs)) if d.outputs else ""
        return "<p>%s</p><ul>%s</ul>%s<p>%s</p>" % (d.summary, keys, outputs, d.notes)

    def initAlgorithm(self, config=None):
        for param in self.description.params:
            definition = _parameter(param, self.widgets[param.key])
            if not param.required and self.widgets[param.key].kind not in DESTINATIONS:
                definition.setFlags(definition.flags() | QgsProcessingParameterDefinition.FlagOptional)
            self.addParameter(definition)

    def _value(self, param, parameters, context):
        widget = self.widgets[param.key]
        value = parameters.get(param.key)
        if value is None or value == "":
            return None
        if widget.kind == "raster":
            return _layer_path(self.parameterAsRasterLayer(parameters, param.key, context))
        if widget.kind == "vector":
            return _layer_path(self.parameterAsVectorLayer(parameters, param.key, context))
        if widget.kind == "layers":  # kept in order, repeats included (band math pairs images with bands)
            values = value if isinstance(value, (list, tuple)) else str(value).split("|")
            return [_layer_path(v) for v in values]
        if widget.kind in ("raster_out", "vector_out", "file_out"):
            return self.parameterAsOutputLayer(parameters, param.key, context) if widget.kind != "file_out" \
                else self.parameterAsFileOutput(parameters, param.key, context)
        if widget.kind == "folder_out":
            return self.parameterAsString(parameters, param.key, context)
        if widget.kind == "enum":
            return widget.options[self.parameterAsEnum(parameters, param.key, context)][0]
        if widget.kind == "integer":
            return self.parameterAsInt(parameters, param.key, context)
        if widget.kind == "double":
            return self.parameterAsDouble(parameters, param.key, context)
        return self.parameterAsString(parameters, param.key, context)

    def processAlgorithm(self, parameters, context, feedback):
        import algofactory
        values = {}
        for param in self.description.params:
            value = self._value(param, parameters, context)
            if value is not None:
                values[param.key] = value

        def progress(fraction, message):
            feedback.setProgress(100.0 * fraction)
            return not feedback.isCanceled()

        try:
            result = algofactory.run(self.description.name, progress=progress, check=False, **values)
        except (algofactory.ParameterError, algofactory.UnknownAlgorithm, OSError) as error:
            raise QgsProcessingException(str(error))
        for line in result.lines:
            feedback.pushInfo(line)
        if result.cancelled:
            raise QgsProcessingException("The algorithm was cancelled by the user.")
        if not result.success:
            raise QgsProcessingException("%s failed (code %d): %s" % (
                self.description.name, result.code, result.message or "; ".join(result.lines)))
        outputs = {k: v for k, v in values.items() if self.widgets[k].kind in DESTINATIONS}
        outputs.update(result.outputs)
        self._load_extra_rasters(result.outputs, outputs, context)
        return outputs

    def _load_extra_rasters(self, printed, outputs, context):
        """Rasters named only in [OUTPUT] lines (destinations are loaded by Processing itself)."""
        destinations = {str(outputs[k]) for k, w in self.widgets.items() if w.kind in DESTINATIONS and k in outputs}
        for key, value in printed.items():
            for path in value if isinstance(value, list) else [value]:
                if path in destinations or not path.lower().endswith(RASTER_SUFFIXES) or not os.path.isfile(path):
                    continue
                details = QgsProcessingContext.LayerDetails(os.path.basename(path), context.project(), key)
                context.addLayerToLoadOnCompletion(path, details)
