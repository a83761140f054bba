#pragma once

// An RSS 2.0 feed read into its channel and items. Every child element of an item is kept by its
// tag name, extension elements ("tqm:message") under their qualified name.

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

struct RssItem
{
    QString title;
    QString link;
    QString description;
    QString guid;
    QDateTime pubDate;                // invalid when absent or unreadable
    QHash<QString, QString> elements; // every child element's text by tag name
};

struct RssChannel
{
    QString title;
    QString link;
    QString description;
    QList<RssItem> items;
};

class RSSReader
{
public:
    // False when the text is no RSS document (no rss element, no channel, not XML).
    bool parse(const QByteArray &document);
    const RssChannel &channel() const { return _channel; }

private:
    RssChannel _channel;
};
