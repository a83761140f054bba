// Arbitrary bytes as the brand XML document of an archive: load it, then query every value.

#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"

#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QGuiApplication app(*argc, *argv); // pixmaps need it
    QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*=false"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    static const QString xmlPath = dir.filePath(QStringLiteral("brand.xml"));
    static const QString archivePath = dir.filePath(QStringLiteral("brand.dat"));
    {
        QFile xml(xmlPath);
        if (!xml.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        xml.write(reinterpret_cast<const char *>(data), qint64(size));
        xml.close();
        QFile archive(archivePath);
        if (!archive.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        TarFileWriter writer(archive);
        writer.addFile(xmlPath, QStringLiteral("brand.xml"));
        writer.addFile(xmlPath, QStringLiteral("images/pic.png")); // an image that never decodes
    }

    BrandEngine &brand = BrandEngine::instance();
    brand.load(archivePath);
    for (const QString &id : brand.ids(BrandEngine::ValueType::Bool))
        brand.getBool(id);
    for (const QString &id : brand.ids(BrandEngine::ValueType::Int))
        brand.getInt(id);
    for (const QString &id : brand.ids(BrandEngine::ValueType::String))
        brand.getString(id);
    for (const QString &id : brand.ids(BrandEngine::ValueType::Image)) {
        if (brand.getImageFile(id) == QLatin1String("images/pic.png"))
            brand.getPixmap(id);
    }
    BrandEngine::release();
    return 0;
}
