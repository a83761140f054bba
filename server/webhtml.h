#pragma once

// The pieces every page is made of: escaping, the figures as the desktop program writes them, the
// brand's names, and the frame around a page (header, navigation, the member chooser, footer).
// Everything that came from a member or the store goes through htmlEscape before it is written.

#include <QDate>
#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

// & < > " ' as entities: safe in text and in quoted attribute values.
QString htmlEscape(QStringView text);
// A query or path component, percent-encoded and then escaped for an attribute.
QString urlPart(const QString &text);

// Figures as the desktop shows them: energy whole ("1250"), nutrients to a tenth ("12.5");
// unknown values (none, or negative: the program's "not known") as an empty cell. Quantities
// are the model's quantityText().
QString formatEnergy(std::optional<double> value);
QString formatNutrient(std::optional<double> value);
// "Monday, March 3 2025", the desktop's long day name.
QString longDayName(const QDate &date);

// The names of resources/brand/brand.xml, compiled into the server.
struct WebBrand
{
    QString webName = QStringLiteral("Tarnwell Online");
    QString appName = QStringLiteral("Tarnwell");
    QString fibre = QStringLiteral("fiber"); // the brand's spelling

    static const WebBrand &instance();
    QString fibreLabel() const; // "Fibre"
};

// What the frame around a page shows.
struct PageFrame
{
    QString title;
    QString section;     // the navigation entry shown as current: "day", "calendar", ...
    QString viewer;      // the member logged in; empty on the login page
    QString csrf;        // the session's token, for the log-out button
    QString subject;     // whose diary the page shows (the viewer's own or a shared one)
    QStringList shownBy; // members who shared their diary with the viewer
    QString path;        // the page's path, for the member chooser's form
    QString notice;      // a message above the page (escaped here)
    bool error = false;
};

// A whole document: the frame with body (already HTML) inside it.
QString renderPage(const PageFrame &frame, const QString &body);
// "?member=NAME" when subject is not the viewer, else empty; "&" joined with more parameters.
QString memberQuery(const PageFrame &frame, const QString &more = QString());
// The hidden form field with the CSRF token.
QString csrfField(const QString &csrf);
// A horizontal bar of share (0..1 and beyond), its class telling the colour: "", "short", "over".
QString standingBar(double share, const QString &kind);
