#include "brand/brandengine.h"

#include "brand/brandlog.h"
#include "brand/tarfilereader.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QPixmapCache>
#include <QRegularExpression>
#include <QUrl>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

BrandEngine *_instance = nullptr;

QString notFound(const QString &id)
{
    return QStringLiteral("Couldn't find id '%1' in brand").arg(id);
}

QStringList sortedKeys(QStringList keys)
{
    std::sort(keys.begin(), keys.end());
    return keys;
}

const QString kMembershipText = QStringLiteral(
    "If you have a paid ${BRAND_ID} membership\n(a separate purchase from this software) you can publish up\n"
    "your diary entries to your ${BRAND_ID} online\ndiary. This will let you share your diary with other\n"
    "${BRAND_ID} members. This process will also upload your\ncheck-in information.\n\nYou have not set your "
    "username or password. To do this,\ngo to the internet section of the preferences dialog\nand fill out "
    "the ${WEB_ADDRESS} login box.");

// Whether a member's whole name matches the pattern. A plain name ('.' matches itself) that is
// in the catalogue needs no regular expression: dozens of them made a visible part of the start.
bool hasMember(const TarFileReader &archive, const QString &pattern)
{
    const bool plain = std::all_of(pattern.cbegin(), pattern.cend(), [](QChar c) {
        return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
               c == u'/' || c == u'_' || c == u'-' || c == u'.';
    });
    if (plain && archive.catalogue().count(pattern.toLatin1()) > 0)
        return true;
    return !archive.list(pattern, Qt::CaseSensitive).isEmpty();
}

} // namespace

BrandEngine::BrandEngine()
{
    if (_instance)
        Lm::assertFailed("_instance", __FILE__, __LINE__);
    _instance = this;
}

BrandEngine::~BrandEngine()
{
    if (_instance == this)
        _instance = nullptr;
}

BrandEngine &BrandEngine::instance()
{
    if (!_instance)
        new BrandEngine();
    return *_instance;
}

void BrandEngine::release()
{
    delete _instance;
}

bool BrandEngine::load(const QString &archivePath)
{
    static int generations = 0;
    _generation = ++generations;
    const bool filename = !archivePath.isNull();
    LM_ASSERT(filename);

    auto archive = std::make_unique<TarFileReader>();
    if (!archive->open(archivePath))
        return false;
    TarFileReader &reader = *archive;
    _archives.push_back(std::move(archive));

    for (const QString &member : reader.list(QStringLiteral(".*xml"), Qt::CaseSensitive))
        loadDocument(reader, member);
    return true;
}

void BrandEngine::loadDocument(TarFileReader &archive, const QString &memberName)
{
    // The root's child elements, taken only once the whole document has parsed: half of a
    // brand file must not load.
    QXmlStreamReader xml(archive.read(memberName));
    QList<Element> elements;
    bool brandRoot = false;
    if (xml.readNextStartElement()) {
        brandRoot = xml.qualifiedName() == QLatin1String("brand");
        while (brandRoot && xml.readNextStartElement()) {
            elements.append({xml.qualifiedName().toString(), xml.attributes()});
            xml.skipCurrentElement();
        }
    }
    while (!xml.atEnd())
        xml.readNext();
    if (xml.hasError() || !brandRoot) {
        qCWarning(lcBrand, "BrandEngine: Skipping what looks not to be a branding xml file: %s",
                  qUtf8Printable(memberName));
        return;
    }
    for (const Element &element : std::as_const(elements)) {
        if (element.attributes.hasAttribute(QLatin1String("platform")) &&
            !platformMatches(element.attributes.value(QLatin1String("platform")).toString()))
            continue;
        if (element.attributes.hasAttribute(QLatin1String("product"))) {
            const QString product = element.attributes.value(QLatin1String("product")).toString();
            if (!productMatches(product, QLatin1String(Lm::kProductKeyword))) {
                qCWarning(lcBrand,
                          "BrandEngine: Skipping element as it is not flagged for this product but '%s'",
                          qUtf8Printable(product));
                continue;
            }
        }
        handleElement(archive, element, memberName);
    }
}

void BrandEngine::handleElement(TarFileReader &archive, const Element &element, const QString &memberName)
{
    const QString &tag = element.tag;
    const QString id = element.attributes.value(QLatin1String("id")).toString();
    const QString value = element.attributes.value(QLatin1String("value")).toString();
    if (tag == QLatin1String("string")) {
        if (!id.isEmpty() && !value.isEmpty())
            _strings.insert(id, value);
    } else if (tag == QLatin1String("int")) {
        if (!id.isEmpty() && !value.isEmpty())
            _ints.insert(id, value.toInt());
    } else if (tag == QLatin1String("bool")) {
        const QString lower = value.toLower();
        if (!id.isEmpty() && (lower == QLatin1String("true") || lower == QLatin1String("false")))
            _bools.insert(id, lower == QLatin1String("true"));
    } else if (tag == QLatin1String("image")) {
        const QString fileRef = element.attributes.value(QLatin1String("fileref")).toString();
        if (!id.isEmpty() && !fileRef.isEmpty()) {
            if (!hasMember(archive, fileRef)) {
                qCWarning(lcBrand, "BrandEngine: can't find image file '%s' in archive",
                          qUtf8Printable(fileRef));
            }
            _images.insert(id, ImageRef{&archive, fileRef});
        }
    } else if (tag == QLatin1String("include")) {
        // Accepted for older brand files; nothing to do.
    } else {
        qCWarning(lcBrand, "BrandEngine: Unknown tag '%s' in %s", qUtf8Printable(tag),
                  qUtf8Printable(memberName));
    }
}

bool BrandEngine::platformMatches(const QString &platformAttribute)
{
    static const QRegularExpression re(QStringLiteral("(^|,)\\s*\\s*($|,)"));
    return re.match(platformAttribute).hasMatch();
}

bool BrandEngine::productMatches(const QString &productAttribute, const QString &keyword)
{
    const QRegularExpression re(QStringLiteral("(^|,)\\s*") + keyword + QStringLiteral("\\s*($|,)"));
    return re.match(productAttribute).hasMatch();
}

bool BrandEngine::idExists(const QString &id) const
{
    return _bools.contains(id) || _ints.contains(id) || _images.contains(id) || _strings.contains(id);
}

bool BrandEngine::getBool(const QString &id) const
{
    const auto it = _bools.constFind(id);
    if (it == _bools.cend())
        Lm::fatal(notFound(id));
    return *it;
}

int BrandEngine::getInt(const QString &id) const
{
    const auto it = _ints.constFind(id);
    if (it == _ints.cend())
        Lm::fatal(notFound(id));
    return *it;
}

QString BrandEngine::getString(const QString &id) const
{
    const auto it = _strings.constFind(id);
    if (it == _strings.cend())
        Lm::fatal(notFound(id));
    return *it;
}

QString BrandEngine::getImageFile(const QString &id) const
{
    const auto it = _images.constFind(id);
    if (it == _images.cend())
        Lm::fatal(notFound(id));
    return it->fileRef;
}

QByteArray BrandEngine::getImageData(const QString &id) const
{
    const auto it = _images.constFind(id);
    if (it == _images.cend())
        Lm::fatal(notFound(id));
    return readImage(*it, it->fileRef, id);
}

QByteArray BrandEngine::readImage(const ImageRef &image, const QString &member, const QString &id) const
{
    const QByteArray data = image.archive->read(member);
    if (data.isEmpty())
        Lm::fatal(QStringLiteral("Couldn't find image file '%1' for brand id '%2'").arg(image.fileRef, id));
    return data;
}

QPixmap BrandEngine::getPixmap(const QString &id) const
{
    const auto *app = qobject_cast<const QGuiApplication *>(QCoreApplication::instance());
    return getPixmap(id, app ? app->devicePixelRatio() : 1.0);
}

QPixmap BrandEngine::getPixmap(const QString &id, qreal devicePixelRatio) const
{
    const auto it = _images.constFind(id);
    if (it == _images.cend())
        Lm::fatal(notFound(id));
    // The denser picture, where there is one.
    QString member = it->fileRef;
    qreal ratio = 1.0;
    if (devicePixelRatio > 1.0) {
        const QFileInfo name(it->fileRef);
        const QString dense = (name.path() == QLatin1String(".") ? QString() : name.path() + u'/') +
                              name.completeBaseName() + QStringLiteral("@2x.") + name.suffix();
        if (it->archive->catalogue().count(dense.toLatin1()) > 0) {
            member = dense;
            ratio = 2.0;
        }
    }
    // Windows ask for the same icons again and again: decode each image once per loaded brand.
    const QString key = QStringLiteral("tarnwell-brand/%1/%2/%3").arg(_generation).arg(ratio).arg(id);
    QPixmap pixmap;
    if (QPixmapCache::find(key, &pixmap))
        return pixmap;
    QByteArray data = readImage(*it, member, id);
    // Reading by the member's suffix keeps Qt from loading every image plug-in to sniff the data
    // (milliseconds at start-up); a member whose name lies about its contents is still sniffed.
    QBuffer buffer(&data);
    QImageReader reader(&buffer, QFileInfo(member).suffix().toLatin1());
    reader.setAutoDetectImageFormat(false);
    QImage image = reader.read();
    if (image.isNull())
        image = QImage::fromData(data);
    pixmap = QPixmap::fromImage(std::move(image));
    pixmap.setDevicePixelRatio(ratio);
    QPixmapCache::insert(key, pixmap);
    return pixmap;
}

QPixmap *BrandEngine::getNewPixmap(const QString &id) const
{
    return new QPixmap(getPixmap(id));
}

QStringList BrandEngine::ids(ValueType type) const
{
    switch (type) {
    case ValueType::Bool:
        return sortedKeys(_bools.keys());
    case ValueType::Int:
        return sortedKeys(_ints.keys());
    case ValueType::String:
        return sortedKeys(_strings.keys());
    case ValueType::Image:
        return sortedKeys(_images.keys());
    }
    return {};
}

QString BrandEngine::expandBrandVariables(const QString &text) const
{
    static const QRegularExpression re(QStringLiteral("\\$\\{([^\\}]+)\\}"));
    QString result = text;
    int rounds = 0;
    for (QRegularExpressionMatch match = re.match(result); match.hasMatch(); match = re.match(result)) {
        const QString name = match.captured(1);
        if (++rounds > kMaxExpansionRounds || result.size() > kMaxExpandedLength) {
            qCWarning(lcBrand, "BrandEngine: Stopped expanding '${%s}': the brand's values refer to each other "
                               "without end",
                      qUtf8Printable(name));
            break;
        }
        const QString value = getString(name.toLower());
        result.replace(QStringLiteral("${") + name + QLatin1Char('}'), value);
    }
    return result;
}

QString BrandEngine::expandUrlVariables(QString &url, const BrandUrlValues &values) const
{
    // Percent-encoded: "al ice&x" or "bob#1" must not split the query, and no "${" survives it.
    const QString userName = QString::fromLatin1(QUrl::toPercentEncoding(values.userName));
    const QString pwHash =
        values.password.isEmpty()
            ? QString()
            : QString::fromLatin1(
                  QCryptographicHash::hash(values.password.toUtf8(), QCryptographicHash::Md5).toHex());

    if ((url.contains(QLatin1String("${USERNAME}")) || url.contains(QLatin1String("${PWHASH}"))) &&
        (userName.isEmpty() || pwHash.isEmpty())) {
        return expandBrandVariables(kMembershipText);
    }

    url.replace(QLatin1String("${PLATFORM}"), QLatin1String(Lm::kPlatform));
    url.replace(QLatin1String("${VERSION}"), QLatin1String(Lm::kVersion));
    url.replace(QLatin1String("${PRODUCT}"), QLatin1String(Lm::kProductKeyword));
    url.replace(QLatin1String("${USERNAME}"), userName);
    url.replace(QLatin1String("${PWHASH}"), pwHash);
    url.replace(QLatin1String("${USERNAME_OPTIONAL}"), userName);
    url.replace(QLatin1String("${PWHASH_OPTIONAL}"), pwHash);
    url.replace(QLatin1String("${CONTENT_DIR}"), QUrl::fromLocalFile(values.contentDir).toString());
    url = expandBrandVariables(url);
    return QString();
}
