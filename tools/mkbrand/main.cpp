// mkbrand OUTPUT SOURCE_DIR
//
// Packs a brand folder into a brand archive: the XML documents as they are and every
// images/*.svg rendered to images/*.png at its own size, and to images/*@2x.png at twice it for
// high-density screens. Members are written in name order so
// that the same sources give the same archive layout.

#include "brand/tarfilewriter.h"

#include <QDir>
#include <QDirIterator>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSaveFile>
#include <QSvgRenderer>
#include <QTemporaryDir>

#include <cstdio>
#include <map>

namespace {

int fail(const QString &message)
{
    std::fprintf(stderr, "mkbrand: %s\n", qUtf8Printable(message));
    return 1;
}

bool renderSvg(const QString &source, const QString &target, int scale, QString *error)
{
    QSvgRenderer renderer(source);
    if (!renderer.isValid()) {
        *error = QStringLiteral("%1 is not a valid SVG image").arg(source);
        return false;
    }
    const QSize size = renderer.defaultSize();
    if (size.isEmpty()) {
        *error = QStringLiteral("%1 has no size").arg(source);
        return false;
    }
    QImage image(size * scale, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size * scale)));
    painter.end();
    if (!QDir().mkpath(QFileInfo(target).absolutePath()) || !image.save(target, "PNG")) {
        *error = QStringLiteral("cannot write %1").arg(target);
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    const QStringList args = QGuiApplication::arguments();
    if (args.size() != 3)
        return fail(QStringLiteral("usage: mkbrand OUTPUT SOURCE_DIR"));
    const QString output = args.at(1);
    const QDir sourceDir(args.at(2));
    if (!sourceDir.exists())
        return fail(QStringLiteral("no such folder: %1").arg(sourceDir.path()));

    QTemporaryDir renderDir;
    if (!renderDir.isValid())
        return fail(QStringLiteral("cannot create a temporary folder"));

    // member name -> file to pack
    std::map<QString, QString> members;
    QDirIterator it(sourceDir.path(), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = sourceDir.relativeFilePath(path);
        if (relative.endsWith(QLatin1String(".xml"))) {
            members[relative] = path;
        } else if (relative.endsWith(QLatin1String(".svg"))) {
            const QString base = relative.left(relative.size() - 4);
            for (const int scale : {1, 2}) {
                const QString member =
                    base + (scale == 1 ? QStringLiteral(".png") : QStringLiteral("@2x.png"));
                const QString rendered = renderDir.filePath(member);
                QString error;
                if (!renderSvg(path, rendered, scale, &error))
                    return fail(error);
                members[member] = rendered;
            }
        } else if (relative.endsWith(QLatin1String(".png"))) {
            members[relative] = path;
        }
    }
    if (members.empty())
        return fail(QStringLiteral("nothing to pack in %1").arg(sourceDir.path()));

    QSaveFile file(output);
    if (!file.open(QIODevice::WriteOnly))
        return fail(QStringLiteral("cannot write %1: %2").arg(output, file.errorString()));
    {
        TarFileWriter writer(file);
        for (const auto &[member, path] : members) {
            if (!writer.addFile(path, member)) {
                QString error;
                writer.error(&error);
                file.cancelWriting();
                return fail(QStringLiteral("cannot add %1: %2").arg(member, error.isEmpty() ? path : error));
            }
        }
    } // the writer's end marker goes out here
    if (!file.commit())
        return fail(QStringLiteral("cannot write %1: %2").arg(output, file.errorString()));
    return 0;
}
