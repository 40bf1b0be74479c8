// Reading and checking T3 coherency-matrix folders.
#include "t3_folder.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace algofactory::polsar
{

QStringList t3ElementFiles()
{
    return {"T11.bin", "T12_real.bin", "T12_imag.bin", "T13_real.bin", "T13_imag.bin",
            "T22.bin", "T23_real.bin", "T23_imag.bin", "T33.bin"};
}

bool readT3Config(const QString& dir, T3Folder& folder)
{
    QFile file(dir + "/config.txt");
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    // Alternating lines: a key, its value, a separator line.
    QStringList lines;
    QTextStream stream(&file);
    while (!stream.atEnd())
        lines << stream.readLine().trimmed();
    folder = T3Folder();
    for (int i = 0; i + 1 < lines.size(); ++i)
    {
        bool ok = false;
        const int value = lines[i + 1].toInt(&ok);
        if (lines[i] == "Nrow" && ok)
            folder.rows = value;
        else if (lines[i] == "Ncol" && ok)
            folder.cols = value;
    }
    return folder.rows > 0 && folder.cols > 0;
}

QString missingT3Element(const QString& dir, const T3Folder& folder)
{
    const qint64 bytes = qint64(folder.rows) * folder.cols * qint64(sizeof(float));
    for (const QString& name : t3ElementFiles())
    {
        const QFileInfo info(dir + "/" + name);
        if (!info.isFile() || info.size() < bytes)
            return name;
    }
    return QString();
}

} // namespace algofactory::polsar
