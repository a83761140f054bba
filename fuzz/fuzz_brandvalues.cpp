// Arbitrary bytes as brand values and a brand picture: every string expanded as texts are, every
// picture decoded. Lines "id=value" of the input before its first zero byte become string values;
// the bytes after it are the picture.

#include "brand/brandengine.h"
#include "brand/tarfilewriter.h"
#include "common/lmassert.h"

#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstdint>

namespace {

struct Ended
{
};

[[noreturn]] void endFatal(const QString &)
{
    throw Ended{};
}

QByteArray escaped(QByteArray text)
{
    return text.replace('&', "&amp;").replace('"', "&quot;").replace('<', "&lt;").replace('>', "&gt;");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QGuiApplication app(*argc, *argv);
    QLoggingCategory::setFilterRules(QStringLiteral("tarnwell.*=false\nqt.*=false"));
    Lm::setFatalHandler(endFatal);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir dir;
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    const qsizetype split = input.indexOf('\0');
    const QByteArray values = split < 0 ? input : input.left(split);
    const QByteArray picture = split < 0 ? QByteArray() : input.mid(split + 1);

    QByteArray xml = "<brand><image id=\"pic\" fileref=\"images/pic.png\"/>";
    for (const QByteArray &line : values.split('\n')) {
        const qsizetype eq = line.indexOf('=');
        if (eq > 0)
            xml += "<string id=\"" + escaped(line.left(eq)) + "\" value=\"" + escaped(line.mid(eq + 1)) + "\"/>";
    }
    xml += "</brand>";
    const QString xmlPath = dir.filePath(QStringLiteral("brand.xml"));
    const QString picturePath = dir.filePath(QStringLiteral("pic.png"));
    const QString archivePath = dir.filePath(QStringLiteral("brand.dat"));
    {
        QFile x(xmlPath), p(picturePath), archive(archivePath);
        if (!x.open(QIODevice::WriteOnly | QIODevice::Truncate) || !p.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
            !archive.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return 0;
        x.write(xml);
        p.write(picture);
        x.close();
        p.close();
        TarFileWriter writer(archive);
        writer.addFile(xmlPath, QStringLiteral("brand.xml"));
        writer.addFile(picturePath, QStringLiteral("images/pic.png"));
        writer.addFile(picturePath, QStringLiteral("images/pic@2x.png"));
    }

    BrandEngine &brand = BrandEngine::instance();
    brand.load(archivePath);
    for (const QString &id : brand.ids(BrandEngine::ValueType::String)) {
        try {
            brand.expandBrandVariables(brand.getString(id));
            QString url = brand.getString(id);
            brand.expandUrlVariables(url, {brand.getString(id), id, QStringLiteral("/content/")});
        } catch (const Ended &) {
            // an unknown variable: the program would end with its message
        }
    }
    for (const qreal ratio : {1.0, 2.0}) {
        try {
            brand.getPixmap(QStringLiteral("pic"), ratio);
        } catch (const Ended &) {
            // an empty picture: the same
        }
    }
    BrandEngine::release();
    return 0;
}
