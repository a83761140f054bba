#include "staticdb/rssreader.h"

#include "staticdb/staticdblog.h"

#include <QXmlStreamReader>

namespace {

// The text of the current element, with any markup inside it skipped.
QString elementText(QXmlStreamReader &xml)
{
    return xml.readElementText(QXmlStreamReader::IncludeChildElements).trimmed();
}

// RSS dates follow RFC 822, whose zones may be names ("GMT", "EST"); Qt reads numeric ones.
QDateTime feedDate(QString text)
{
    static const QHash<QString, QString> zones = {
        {QStringLiteral("GMT"), QStringLiteral("+0000")}, {QStringLiteral("UT"), QStringLiteral("+0000")},
        {QStringLiteral("UTC"), QStringLiteral("+0000")}, {QStringLiteral("Z"), QStringLiteral("+0000")},
        {QStringLiteral("EST"), QStringLiteral("-0500")}, {QStringLiteral("EDT"), QStringLiteral("-0400")},
        {QStringLiteral("CST"), QStringLiteral("-0600")}, {QStringLiteral("CDT"), QStringLiteral("-0500")},
        {QStringLiteral("MST"), QStringLiteral("-0700")}, {QStringLiteral("MDT"), QStringLiteral("-0600")},
        {QStringLiteral("PST"), QStringLiteral("-0800")}, {QStringLiteral("PDT"), QStringLiteral("-0700")}};
    text = text.trimmed();
    const qsizetype space = text.lastIndexOf(QLatin1Char(' '));
    const auto zone = zones.constFind(text.mid(space + 1).toUpper());
    if (space > 0 && zone != zones.cend())
        text = text.left(space + 1) + *zone;
    return QDateTime::fromString(text, Qt::RFC2822Date);
}

} // namespace

bool RSSReader::parse(const QByteArray &document)
{
    _channel = RssChannel();
    QXmlStreamReader xml(document);
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("rss")) {
        qCDebug(lcStaticDb, "RSSReader: Not a RSS document. No rss element!");
        return false;
    }
    if (!xml.attributes().hasAttribute(QLatin1String("version")))
        qCDebug(
            lcStaticDb,
            "RSSReader: Document missing 'version' attribute. Invalid RSS document but continuing anyway.");
    bool channelFound = false;
    while (xml.readNextStartElement()) {
        if (xml.name() != QLatin1String("channel") || channelFound) {
            xml.skipCurrentElement();
            continue;
        }
        channelFound = true;
        QHash<QString, QString> fields;
        while (xml.readNextStartElement()) {
            if (xml.name() != QLatin1String("item")) {
                fields.insert(xml.qualifiedName().toString(), elementText(xml));
                continue;
            }
            RssItem item;
            while (xml.readNextStartElement())
                item.elements.insert(xml.qualifiedName().toString(), elementText(xml));
            if (item.elements.isEmpty())
                qCDebug(lcStaticDb, "Invalid RSS channel item. No elements!");
            item.title = item.elements.value(QStringLiteral("title"));
            item.link = item.elements.value(QStringLiteral("link"));
            item.description = item.elements.value(QStringLiteral("description"));
            item.guid = item.elements.value(QStringLiteral("guid"));
            item.pubDate = feedDate(item.elements.value(QStringLiteral("pubDate")));
            _channel.items.append(item);
        }
        for (const char *required : {"title", "link", "description"}) {
            if (!fields.contains(QLatin1String(required)))
                qCDebug(lcStaticDb, "RSSReader: Invalid channel. No '%s' element.", required);
        }
        _channel.title = fields.value(QStringLiteral("title"));
        _channel.link = fields.value(QStringLiteral("link"));
        _channel.description = fields.value(QStringLiteral("description"));
    }
    if (xml.hasError()) {
        qCDebug(lcStaticDb, "RSSReader: %s", qUtf8Printable(xml.errorString()));
        return false;
    }
    if (!channelFound) {
        qCDebug(lcStaticDb, "RSSReader: Document missing channel element!");
        return false;
    }
    return true;
}
