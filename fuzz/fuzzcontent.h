#pragma once

// The reference database fuzz targets' one set-up: a resource folder of their own with its
// content folder, logging off. False when the folder cannot be made.

#include "app/lmsettings.h"

#include <QDir>
#include <QLoggingCategory>
#include <QTemporaryDir>

inline bool prepareContentFolder()
{
    static QTemporaryDir dir;
    static const bool ready = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*=false"));
        LmSettings::setResourcePath(dir.path());
        return QDir().mkpath(LmSettings::contentPath());
    }();
    return ready;
}
