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
#include <QHash>
#include <QImage>
#include <QPainter>
#include <QSaveFile>
#include <QSvgRenderer>
#include <QTemporaryDir>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <map>
#include <vector>

namespace {

int fail(const QString &message)
{
    std::fprintf(stderr, "mkbrand: %s\n", qUtf8Printable(message));
    return 1;
}

// Colour channels of a pixel, alpha first.
int channel(QRgb c, int k)
{
    return k == 0 ? qAlpha(c) : k == 1 ? qRed(c) : k == 2 ? qGreen(c) : qBlue(c);
}

// At most 256 colours for the picture by median cut over its colour histogram, weighted by
// pixel count: flat areas keep their exact colour, the edges share what is left.
QList<QRgb> medianCut(const QHash<QRgb, int> &counts)
{
    struct Entry
    {
        QRgb colour;
        int count;
    };
    std::vector<Entry> entries;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        entries.push_back({it.key(), it.value()});
    struct Box
    {
        size_t begin, end;
    };
    std::vector<Box> boxes{{0, entries.size()}};
    while (boxes.size() < 256) {
        // The box whose widest channel spans the most, its weight counting too.
        int best = -1;
        int bestChannel = 0;
        double bestScore = 0;
        for (size_t i = 0; i < boxes.size(); ++i) {
            if (boxes[i].end - boxes[i].begin < 2)
                continue;
            double weight = 0;
            for (size_t j = boxes[i].begin; j < boxes[i].end; ++j)
                weight += entries[j].count;
            for (int k = 0; k < 4; ++k) {
                int lo = 255, hi = 0;
                for (size_t j = boxes[i].begin; j < boxes[i].end; ++j) {
                    lo = std::min(lo, channel(entries[j].colour, k));
                    hi = std::max(hi, channel(entries[j].colour, k));
                }
                const double score = double(hi - lo) * (hi - lo) * (1 + std::sqrt(weight));
                if (score > bestScore) {
                    bestScore = score;
                    best = int(i);
                    bestChannel = k;
                }
            }
        }
        if (best < 0)
            break;
        const Box box = boxes[size_t(best)];
        std::sort(entries.begin() + qsizetype(box.begin), entries.begin() + qsizetype(box.end),
                  [bestChannel](const Entry &x, const Entry &y) {
                      return channel(x.colour, bestChannel) < channel(y.colour, bestChannel);
                  });
        long total = 0;
        for (size_t j = box.begin; j < box.end; ++j)
            total += entries[j].count;
        long below = 0;
        size_t middle = box.begin;
        while (middle + 2 < box.end && (below += entries[middle].count) < total / 2)
            ++middle;
        boxes[size_t(best)] = {box.begin, middle + 1};
        boxes.push_back({middle + 1, box.end});
    }
    QList<QRgb> table;
    for (const Box &box : boxes) {
        double weight = 0, sums[4] = {0, 0, 0, 0};
        for (size_t j = box.begin; j < box.end; ++j) {
            weight += entries[j].count;
            for (int k = 0; k < 4; ++k)
                sums[k] += channel(entries[j].colour, k) * double(entries[j].count);
        }
        const auto mean = [&](int k) { return int(sums[k] / weight + 0.5); };
        table.append(qRgba(mean(1), mean(2), mean(3), mean(0)));
    }
    return table;
}

// The picture with a colour table when that loses nothing the eye sees: such a file decodes
// several times faster, and the program decodes its splash and icons while it starts. Up to 256
// colours are kept exactly; more are cut down, unless a pixel would move far (a photograph).
QImage withPalette(const QImage &image)
{
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    QHash<QRgb, int> counts;
    for (int y = 0; y < argb.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(argb.constScanLine(y));
        for (int x = 0; x < argb.width(); ++x)
            ++counts[line[x]];
    }
    QList<QRgb> table = counts.size() <= 256 ? counts.keys() : medianCut(counts);
    QHash<QRgb, int> indexes;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        int nearest = 0, distance = INT_MAX;
        for (int i = 0; i < table.size() && distance > 0; ++i) {
            int d = 0;
            for (int k = 0; k < 4; ++k)
                d += std::abs(channel(it.key(), k) - channel(table[i], k));
            if (d < distance) {
                distance = d;
                nearest = i;
            }
        }
        if (distance > 48)
            return image;
        indexes.insert(it.key(), nearest);
    }
    QImage indexed(argb.size(), QImage::Format_Indexed8);
    indexed.setColorTable(table);
    for (int y = 0; y < argb.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(argb.constScanLine(y));
        uchar *out = indexed.scanLine(y);
        for (int x = 0; x < argb.width(); ++x)
            out[x] = uchar(indexes.value(line[x]));
    }
    return indexed;
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
    if (!QDir().mkpath(QFileInfo(target).absolutePath()) || !withPalette(image).save(target, "PNG")) {
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
