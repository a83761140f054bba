#pragma once

// The printed diary: a day or a run of days, each with its meals, entries, servings and
// nutrients, the day's totals against its targets and its green ticks. Paints on a printer or a
// PDF writer with Qt Gui alone, so the tool prints the same pages as the window.

#include <QDate>
#include <QList>
#include <QString>

class QPagedPaintDevice;

class DiarySheet
{
public:
    // Where a meal, or a day's totals, went: a block is never cut by a page break unless it is
    // taller than a page.
    struct Block
    {
        QDate day;
        QString name;
        int firstPage = 0;
        int lastPage = 0;
    };

    DiarySheet(int userId, const QDate &from, const QDate &to);

    QString title() const;
    // False when the device cannot be painted on.
    bool print(QPagedPaintDevice *device);
    const QList<Block> &blocks() const { return _blocks; }
    int pages() const { return _pages; }

private:
    int _userId;
    QDate _from;
    QDate _to;
    QList<Block> _blocks;
    int _pages = 0;
};
