#include "brand/tarfilereader.h"

#include "common/lmassert.h"

#include <QRegularExpression>

#include <array>
#include <cstring>

namespace {

constexpr qint64 kBlockSize = 512;
constexpr int kNameLength = 100;
constexpr int kSizeOffset = 124;
constexpr int kSizeLength = 12;

} // namespace

bool TarFileReader::open(const QString &archivePath)
{
    _catalogue.clear();
    if (_file.isOpen())
        _file.close();
    _file.setFileName(archivePath);
    if (!_file.open(QIODevice::ReadOnly))
        return false;
    buildCatalogue();
    return true;
}

void TarFileReader::buildCatalogue()
{
    const qint64 fileSize = _file.size();
    _file.seek(0);
    std::array<char, kBlockSize> header{};
    bool lastHeader = false;
    while (true) {
        // A short read still enters what it got, then ends the scan.
        const qint64 got = _file.read(header.data(), kBlockSize);
        if (got < kBlockSize)
            lastHeader = true;
        const qint64 dataOffset = _file.pos();

        if (header[0] == '\0')
            break;

        const char *nameEnd = static_cast<const char *>(std::memchr(header.data(), '\0', kNameLength));
        const QByteArray name(header.data(), nameEnd ? nameEnd - header.data() : kNameLength);
        const qint64 size = parseOctal(header.data() + kSizeOffset, kSizeLength);
        _catalogue.try_emplace(name, Entry{size, dataOffset});

        const qint64 skip = (size + kBlockSize - 1) / kBlockSize * kBlockSize;
        if (lastHeader || skip > fileSize - dataOffset)
            break;
        _file.seek(dataOffset + skip);
        header.fill('\0');
    }
}

qint64 TarFileReader::parseOctal(const char *oct_str, int length)
{
    LM_ASSERT(oct_str);
    qint64 value = 0;
    for (int i = 0; i < length && oct_str[i] != '\0'; ++i) {
        if (oct_str[i] >= '0' && oct_str[i] <= '9')
            value = value * 8 + (oct_str[i] - '0');
    }
    return value;
}

QByteArray TarFileReader::read(const QString &memberName)
{
    const auto it = _catalogue.find(memberName.toLatin1());
    if (it == _catalogue.end() || !_file.isOpen())
        return QByteArray();
    const Entry &entry = it->second;
    // Never allocate for data the file cannot hold.
    if (entry.size > _file.size() - entry.offset)
        return QByteArray();
    QByteArray data(entry.size, Qt::Uninitialized);
    if (!_file.seek(entry.offset) || _file.read(data.data(), entry.size) != entry.size)
        return QByteArray();
    return data;
}

QStringList TarFileReader::list(const QString &pattern, Qt::CaseSensitivity cs) const
{
    QRegularExpression::PatternOptions options = QRegularExpression::NoPatternOption;
    if (cs == Qt::CaseInsensitive)
        options |= QRegularExpression::CaseInsensitiveOption;
    const QRegularExpression re(QRegularExpression::anchoredPattern(pattern), options);
    QStringList names;
    if (!re.isValid())
        return names;
    for (const auto &[name, entry] : _catalogue) {
        const QString text = QString::fromLatin1(name);
        if (re.match(text).hasMatch())
            names.append(text);
    }
    return names;
}
