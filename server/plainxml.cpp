#include "server/plainxml.h"

#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace {

bool isSpace(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

bool isNameStart(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || u == u'_';
}

bool isNameChar(QChar c)
{
    const char16_t u = c.unicode();
    return isNameStart(c) || (u >= u'0' && u <= u'9') || u == u'-' || u == u'.';
}

// Characters XML forbids, and a byte order mark past the first (decoding drops that one), are left
// to Qt's reader. Valid UTF-8 holds no lone surrogate.
bool isPlainChar(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 0x20 || u == 0x9 || u == 0xA || u == 0xD) && u != 0xFFFE && u != 0xFFFF && u != 0xFEFF;
}

// A character XML 1.0 allows in a document.
bool isXmlChar(char32_t c)
{
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

} // namespace

bool PlainXml::read(QByteArrayView utf8, int maxDepth, int maxValueLength)
{
    _events.clear();
    _attributes.clear();
    _decoded.clear();
    _pos = 0;
    // Decoded once; bytes that are not UTF-8 are left to Qt's reader. A leading byte order mark
    // is dropped, as Qt's reader drops it.
    QStringDecoder decoder(QStringDecoder::Utf8);
    _text = decoder(utf8);
    if (decoder.hasError())
        return false;
    if (at("<?xml"_L1) && !declaration())
        return false;
    spaces();
    std::vector<QStringView> open; // the elements not yet ended, the root first
    do {
        if (!element(open, maxDepth, maxValueLength))
            return false;
        // Up to the next tag: text within an element, only white space outside the root.
        const qsizetype textStart = _pos;
        while (_pos < _text.size() && _text.at(_pos) != u'<') {
            const QChar c = _text.at(_pos);
            if (c == u'&' || (open.empty() && !isSpace(c)) || !isPlainChar(c))
                return false;
            if (c == u'>' && _pos - 2 >= textStart && _text.at(_pos - 1) == u']' &&
                _text.at(_pos - 2) == u']')
                return false;
            ++_pos;
        }
    } while (!open.empty());
    return _pos == _text.size();
}

// A start tag (with, for an empty element, its end) or an end tag, from its "<"; open is the
// elements not yet ended.
bool PlainXml::element(std::vector<QStringView> &open, int maxDepth, int maxValueLength)
{
    if (_pos >= _text.size() || _text.at(_pos) != u'<')
        return false;
    ++_pos;
    QStringView tag;
    if (_pos < _text.size() && _text.at(_pos) == u'/') {
        ++_pos;
        if (!name(&tag))
            return false;
        spaces();
        if (_pos >= _text.size() || _text.at(_pos) != u'>' || open.empty() || open.back() != tag)
            return false;
        ++_pos;
        open.pop_back();
        _events.push_back({false, tag});
        return true;
    }
    if (!name(&tag) || int(open.size()) >= maxDepth) // "<!" and "<?" end here too
        return false;
    Event start{true, tag, qsizetype(_attributes.size()), 0};
    for (;;) {
        const qsizetype before = _pos;
        spaces();
        if (_pos >= _text.size())
            return false;
        const QChar c = _text.at(_pos);
        if (c == u'>' || c == u'/') {
            ++_pos;
            const bool empty = c == u'/';
            if (empty && (_pos >= _text.size() || _text.at(_pos++) != u'>'))
                return false;
            start.attributeCount = qsizetype(_attributes.size()) - start.firstAttribute;
            _events.push_back(start);
            if (empty)
                _events.push_back({false, tag});
            else
                open.push_back(tag);
            return true;
        }
        QStringView attribute, content;
        if (_pos == before || !name(&attribute) ||
            ((attribute.front() == u'x' || attribute.front() == u'X') &&
             attribute.startsWith("xml"_L1, Qt::CaseInsensitive)))
            return false;
        if (!assignment(maxValueLength, &content))
            return false;
        // Length and first letter first: most names differ there, and this runs for every pair.
        for (auto i = size_t(start.firstAttribute); i < _attributes.size(); ++i) {
            const QStringView other = _attributes[i].name;
            if (other.size() == attribute.size() && other.front() == attribute.front() && other == attribute)
                return false;
        }
        _attributes.push_back({attribute, content});
    }
}

bool PlainXml::name(QStringView *out)
{
    const qsizetype start = _pos;
    if (_pos >= _text.size() || !isNameStart(_text.at(_pos)))
        return false;
    while (++_pos < _text.size() && isNameChar(_text.at(_pos))) {
    }
    *out = QStringView(_text).sliced(start, _pos - start);
    return true;
}

// What follows an attribute's name: "=" and its quoted value, with white space around the "=".
bool PlainXml::assignment(int maxValueLength, QStringView *out)
{
    spaces();
    if (_pos >= _text.size() || _text.at(_pos) != u'=')
        return false;
    ++_pos;
    spaces();
    if (_pos >= _text.size() || (_text.at(_pos) != u'"' && _text.at(_pos) != u'\''))
        return false;
    const QChar quote = _text.at(_pos++);
    return value(quote, maxValueLength, out);
}

// An attribute value up to its closing quote, which is passed.
bool PlainXml::value(QChar quote, int maxValueLength, QStringView *out)
{
    const qsizetype start = _pos;
    QString decoded;
    bool references = false;
    for (;;) {
        if (_pos >= _text.size())
            return false;
        const QChar c = _text.at(_pos);
        if (c == quote)
            break;
        // White space other than a space is normalised in values; left to Qt's reader.
        if (c == u'<' || c == u'\t' || c == u'\n' || c == u'\r' || !isPlainChar(c))
            return false;
        if (c == u'&') {
            if (!references)
                decoded = QStringView(_text).sliced(start, _pos - start).toString();
            references = true;
            if (!reference(&decoded))
                return false;
            continue;
        }
        if (references)
            decoded += c;
        ++_pos;
    }
    const QStringView plain = QStringView(_text).sliced(start, _pos - start);
    ++_pos;
    if (references) {
        _decoded.push_back(std::move(decoded));
        *out = _decoded.back();
    } else {
        *out = plain;
    }
    return out->size() <= maxValueLength;
}

// "&amp;" and the four others, or "&#N;" / "&#xN;" of a character XML allows; from the "&".
bool PlainXml::reference(QString *out)
{
    ++_pos;
    static const std::pair<QLatin1StringView, QChar> named[] = {
        {"amp;"_L1, u'&'}, {"lt;"_L1, u'<'}, {"gt;"_L1, u'>'}, {"quot;"_L1, u'"'}, {"apos;"_L1, u'\''}};
    for (const auto &[text, character] : named) {
        if (at(text)) {
            *out += character;
            _pos += text.size();
            return true;
        }
    }
    if (_pos >= _text.size() || _text.at(_pos) != u'#')
        return false;
    ++_pos;
    const bool hex = _pos < _text.size() && _text.at(_pos) == u'x';
    if (hex)
        ++_pos;
    char32_t code = 0;
    int digits = 0;
    for (; _pos < _text.size() && _text.at(_pos) != u';'; ++_pos) {
        const char16_t c = _text.at(_pos).unicode();
        int digit = -1;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (hex && c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else if (hex && c >= u'A' && c <= u'F')
            digit = c - u'A' + 10;
        if (digit < 0 || ++digits > 8)
            return false;
        code = code * (hex ? 16 : 10) + char32_t(digit);
    }
    if (_pos >= _text.size() || digits == 0 || !isXmlChar(code))
        return false;
    ++_pos;
    *out += QStringView(QChar::fromUcs4(code));
    return true;
}

// <?xml version="1.0" encoding="UTF-8" standalone="yes"?>, the last two optional, nothing else.
bool PlainXml::declaration()
{
    _pos += 5;
    const char *const names[] = {"version", "encoding", "standalone"};
    size_t next = 0;
    for (;;) {
        const qsizetype before = _pos;
        spaces();
        if (at("?>"_L1)) {
            _pos += 2;
            return next > 0;
        }
        QStringView key, content;
        if (_pos == before || !name(&key))
            return false;
        while (next > 0 && next < std::size(names) && key != QLatin1StringView(names[next]))
            ++next; // the version is not optional, the others are
        if (next == 0 && key != QLatin1StringView(names[0]))
            return false;
        if (next == std::size(names))
            return false;
        if (!assignment(16, &content))
            return false;
        const bool fits = next == 0   ? content == "1.0"_L1
                          : next == 1 ? content.compare("UTF-8"_L1, Qt::CaseInsensitive) == 0
                                      : content == "yes"_L1 || content == "no"_L1;
        if (!fits)
            return false;
        ++next;
    }
}

void PlainXml::spaces()
{
    while (_pos < _text.size() && isSpace(_text.at(_pos)))
        ++_pos;
}

bool PlainXml::at(QLatin1StringView text) const
{
    return QStringView(_text).sliced(_pos).startsWith(text);
}
