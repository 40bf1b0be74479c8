// Folders a run creates for its outputs, removed again (when still empty) if the run fails.
#pragma once

#include <QDir>
#include <QFileInfo>
#include <QStringList>

namespace catalogue
{

class MadeFolders
{
public:
    // Notes the folders that do not exist yet on the way to `folder` (call before creating it).
    void noteBefore(const QString& folder)
    {
        QString path = QFileInfo(folder).absoluteFilePath();
        while (!path.isEmpty() && !QFileInfo::exists(path))
        {
            m_folders << path; // deepest first
            const QString parent = QFileInfo(path).absolutePath();
            if (parent == path)
                break;
            path = parent;
        }
    }
    // Removes the noted folders that are empty, deepest first.
    void removeEmpty() const
    {
        for (const QString& folder : m_folders)
            QDir().rmdir(folder);
    }

private:
    QStringList m_folders;
};

} // namespace catalogue
