#pragma once

#include <QFont>
#include <QString>
#include <QStringList>

// A text broken after words into lines of the given width, at most the given number of them,
// the last cut short (at its end, or in its middle) when the text is longer still. A word
// longer than a line makes a line of its own, cut at its end.
QStringList wrappedLines(const QString &text, const QFont &font, qreal width, int most,
                         Qt::TextElideMode lastElide = Qt::ElideRight);
