#pragma once

// A fast reader for the plain XML the program writes: UTF-8, an optional <?xml?> declaration,
// elements with attributes, white space and text between them, and the five predefined entity
// and character references in attribute values. Anything else (a DTD, a comment, CDATA, a
// processing instruction, a reference in text, a name outside ASCII, a tab or line break inside
// an attribute value, a document that is not well formed) makes it give up: it answers only for
// documents it reads exactly as Qt's XML reader does, and the caller then uses Qt's reader.

#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <deque>
#include <vector>

class PlainXml
{
public:
    struct Attribute
    {
        QStringView name, value;
    };
    // A start or an end of an element, in document order.
    struct Event
    {
        bool start = false;
        QStringView name;
        qsizetype firstAttribute = 0, attributeCount = 0; // in attributes(), for a start
    };

    // False when the document is not one this reader takes (see above), or nests deeper than
    // maxDepth, or has an attribute value longer than maxValueLength.
    bool read(QByteArrayView utf8, int maxDepth, int maxValueLength);

    const std::vector<Event> &events() const { return _events; }
    const std::vector<Attribute> &attributes() const { return _attributes; }

private:
    bool declaration();
    bool element(std::vector<QStringView> &open, int maxDepth, int maxValueLength);
    bool name(QStringView *out);
    const char16_t *assignment(const char16_t *p, int maxValueLength, QStringView *out);
    bool value(char16_t quote, int maxValueLength, QStringView *out);
    bool valueRun(char16_t quote);
    bool reference(QString *out);
    void spaces();
    bool at(QLatin1StringView text) const;

    QString _text;                // the document; names and values without references are views into it
    std::deque<QString> _decoded; // values with references, decoded (a deque: views stay valid)
    std::vector<Event> _events;
    std::vector<Attribute> _attributes;
    const char16_t *_p = nullptr, *_end = nullptr; // what is left of _text
};
