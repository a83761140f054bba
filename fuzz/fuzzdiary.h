#pragma once

// What the diary fuzz targets share: a home of their own with a small brand and the template in
// the resource folder, and fatal messages and assertions that come back as exceptions, so that
// an input the program refuses with a message is told apart from one that crashes it.

#include "app/lmsettings.h"
#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "common/lmassert.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

namespace FuzzDiary {

struct Ended
{
};

[[noreturn]] inline void endFatal(const QString &)
{
    throw Ended{};
}

// An assertion is a fault of ours: it stays a crash for the fuzzer.
[[noreturn]] inline void endAssert(const char *expression, const char *file, int line)
{
    std::fprintf(stderr, "assertion %s at %s:%d\n", expression, file, line);
    std::abort();
}

inline QTemporaryDir &home()
{
    static QTemporaryDir dir;
    return dir;
}

inline QString diaryFolder()
{
    return home().path() + QStringLiteral("/data/tarnwell.org/Ambervale/fuzz/");
}

inline void setUp(int *argc, char ***argv)
{
    static QCoreApplication app(*argc, *argv);
    QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*=false\nqt.*=false"));
    const QString root = home().path();
    QDir(root).mkpath(QStringLiteral("resources"));
    QDir(root).mkpath(QStringLiteral("run"));
    qputenv("HOME", QFile::encodeName(root));
    qputenv("XDG_DATA_HOME", QFile::encodeName(root + QStringLiteral("/data")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root + QStringLiteral("/config")));
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(root + QStringLiteral("/run")));
    QFile::copy(QStringLiteral(TARNWELL_BIN_DIR "/userdata.db"), root + QStringLiteral("/resources/userdata.db"));

    const QString xml = root + QStringLiteral("/brand.xml");
    QFile file(xml);
    if (file.open(QIODevice::WriteOnly))
        file.write("<brand><string id=\"brand_id\" value=\"fuzz\"/><bool id=\"datastore_compat\" value=\"false\"/>"
                   "<bool id=\"feature.family\" value=\"true\"/></brand>");
    file.close();
    QFile archive(root + QStringLiteral("/brand.dat"));
    if (archive.open(QIODevice::WriteOnly)) {
        TarFileWriter writer(archive);
        writer.addFile(xml, QStringLiteral("brand.xml"));
    }
    archive.close();
    BrandEngine::instance().load(archive.fileName());
    LmSettings::setResourcePath(root + QStringLiteral("/resources"));
    Lm::setFatalHandler(endFatal);
    Lm::setAssertHandler(endAssert);
}

inline bool writeFile(const QString &path, const uint8_t *data, size_t size)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(reinterpret_cast<const char *>(data), qint64(size)) == qint64(size);
}

} // namespace FuzzDiary
