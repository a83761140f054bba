#include "brand/brandengine.h"

#include <QPixmapCache>

#include "brand/brandlog.h"
#include "brand/tarfilereader.h"
#include "common/lmassert.h"
#include "common/lmconstants.h"

#include <QCryptographicHash>
#include <QDomDocument>
#include <QRegularExpression>
#include <QUrl>

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
    // A document that does not parse in full counts as not a brand file: half of one must
    // not load.
    QDomDocument document;
    const bool parsed = bool(document.setContent(archive.read(memberName)));
    const QDomElement root = document.documentElement();
    if (!parsed || root.tagName() != QLatin1String("brand")) {
        qCWarning(lcBrand, "BrandEngine: Skipping what looks not to be a branding xml file: %s",
                  qUtf8Printable(memberName));
        return;
    }
    for (QDomNode node = root.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (!node.isElement())
            continue;
        const QDomElement element = node.toElement();
        if (element.hasAttribute(QStringLiteral("platform")) &&
            !platformMatches(element.attribute(QStringLiteral("platform"))))
            continue;
        if (element.hasAttribute(QStringLiteral("product"))) {
            const QString product = element.attribute(QStringLiteral("product"));
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

void BrandEngine::handleElement(TarFileReader &archive, const QDomElement &element, const QString &memberName)
{
    const QString tag = element.tagName();
    const QString id = element.attribute(QStringLiteral("id"));
    const QString value = element.attribute(QStringLiteral("value"));
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
        const QString fileRef = element.attribute(QStringLiteral("fileref"));
        if (!id.isEmpty() && !fileRef.isEmpty()) {
            if (archive.list(fileRef, Qt::CaseSensitive).isEmpty()) {
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
    const QByteArray data = it->archive->read(it->fileRef);
    if (data.isEmpty())
        Lm::fatal(QStringLiteral("Couldn't find image file '%1' for brand id '%2'").arg(it->fileRef, id));
    return data;
}

QPixmap BrandEngine::getPixmap(const QString &id) const
{
    // Windows ask for the same icons again and again: decode each image once per loaded brand.
    const QString key = QStringLiteral("tarnwell-brand/%1/%2").arg(_generation).arg(id);
    QPixmap pixmap;
    if (QPixmapCache::find(key, &pixmap))
        return pixmap;
    pixmap.loadFromData(getImageData(id));
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
    for (QRegularExpressionMatch match = re.match(result); match.hasMatch(); match = re.match(result)) {
        const QString name = match.captured(1);
        const QString value = getString(name.toLower());
        result.replace(QStringLiteral("${") + name + QLatin1Char('}'), value);
    }
    return result;
}

QString BrandEngine::expandUrlVariables(QString &url, const BrandUrlValues &values) const
{
    const QString userName = values.userName;
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
