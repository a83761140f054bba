#include "brand/tarfilewriter.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr qint64 kBlockSize = 512;
constexpr qint64 kCopyChunk = 16384;
constexpr int kMaxNameLength = 99;
constexpr int kHeaderBytesWritten = 257; // the rest of the block comes from padding

} // namespace

TarFileWriter::TarFileWriter(QIODevice &device)
    : _ioDevice(device)
{
}

TarFileWriter::~TarFileWriter()
{
    if (_written < 0)
        return;
    const std::array<char, 2 * kBlockSize> endMarker{};
    writeData(endMarker.data(), qint64(endMarker.size()));
}

bool TarFileWriter::addFile(const QString &sourcePath, const QString &memberName)
{
    if (_written < 0)
        return false;

    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    if (!source.exists())
        return false;

    const QFileInfo info(source);
    const qint64 size = info.size();
    const qint64 mtime = info.lastModified().toSecsSinceEpoch();

    // Names are 8-bit: Latin-1 as it is, anything beyond it as its UTF-8 bytes.
    const QString text = memberName.isEmpty() ? sourcePath : memberName;
    const bool latin1 = std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.unicode() < 256; });
    const QByteArray name = latin1 ? text.toLatin1() : text.toUtf8();
    if (name.size() > kMaxNameLength) {
        fail(QStringLiteral("Contents file name exceeds 99 characters"));
        return false;
    }

    std::array<char, kBlockSize> header{};
    std::memcpy(header.data(), name.constData(), size_t(name.size()));
    std::memcpy(header.data() + 100, "0100600", 8);
    std::memcpy(header.data() + 108, "0000000", 8);
    std::memcpy(header.data() + 116, "0000000", 8);
    std::snprintf(header.data() + 124, 12, "%011llo", static_cast<unsigned long long>(size));
    std::snprintf(header.data() + 136, 12, "%011llo", static_cast<unsigned long long>(mtime));
    header[155] = ' ';
    header[156] = '0';

    // The checksum field counts as eight spaces: byte 155 already holds one, the other seven
    // (7 * 32 = 224) are added.
    unsigned int checksum = 224;
    for (int i = 0; i < 500; ++i)
        checksum += static_cast<unsigned char>(header[size_t(i)]);
    std::snprintf(header.data() + 148, 7, "%06o", checksum);

    if (!writeData(header.data(), kHeaderBytesWritten))
        return false;
    pad();

    std::array<char, kCopyChunk> buffer;
    qint64 remaining = size;
    while (remaining > 0 && _written >= 0) {
        const qint64 wanted = qMin(remaining, kCopyChunk);
        const qint64 got = source.read(buffer.data(), wanted);
        if (got < wanted) {
            fail(QStringLiteral("could not read adequate data from source file"));
            break;
        }
        if (!writeData(buffer.data(), got))
            break;
        remaining -= got;
    }
    pad();
    return _written >= 0;
}

bool TarFileWriter::error(QString *text) const
{
    if (_written >= 0)
        return false;
    if (text) {
        *text = QStringLiteral("TarFileWriter error");
        if (!_message.isEmpty())
            *text += QStringLiteral(" - ") + _message;
    }
    return true;
}

bool TarFileWriter::writeData(const char *data, qint64 size)
{
    if (_written < 0)
        return false;
    const qint64 count = _ioDevice.write(data, size);
    if (count == -1) {
        fail(QStringLiteral("TarFileWriter::_writeData - _ioDevice.writeBlock returned -1 (fatal error)"));
        return false;
    }
    if (count != size) {
        fail(QString::asprintf("_ioDevice.writeBlock only wrote %0d of %0d bytes", int(count), int(size)));
        return false;
    }
    _written += count;
    return true;
}

void TarFileWriter::pad()
{
    if (_written < 0)
        return;
    const qint64 rest = _written % kBlockSize;
    if (rest == 0)
        return;
    const std::array<char, kBlockSize> zeros{};
    writeData(zeros.data(), kBlockSize - rest);
}

void TarFileWriter::fail(const QString &message)
{
    _written = -1;
    _message = message;
}
