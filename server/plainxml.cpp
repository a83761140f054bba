#include "server/plainxml.h"

#include <QStringDecoder>

#include <array>

using namespace Qt::StringLiterals;

namespace {

// Classes of the ASCII characters, looked up in the scanning loops.
enum : quint8 { kSpace = 1, kNameStart = 2, kNameChar = 4, kValueStop = 8 };

constexpr std::array<quint8, 128> kClasses = [] {
    std::array<quint8, 128> classes{};
    for (char16_t c = 0; c < 0x20; ++c)
        classes[c] = kValueStop; // control characters, and white space other than a space
    for (const char16_t c : {u' ', u'\t', u'\n', u'\r'})
        classes[c] |= kSpace;
    for (char16_t c = u'a'; c <= u'z'; ++c)
        classes[c] = kNameStart | kNameChar;
    for (char16_t c = u'A'; c <= u'Z'; ++c)
        classes[c] = kNameStart | kNameChar;
    classes[u'_'] = kNameStart | kNameChar;
    for (char16_t c = u'0'; c <= u'9'; ++c)
        classes[c] = kNameChar;
    classes[u'-'] = classes[u'.'] = kNameChar;
    for (const char16_t c : {u'<', u'&', u'"', u'\''})
        classes[c] = kValueStop;
    return classes;
}();

bool is(char16_t c, quint8 kind)
{
    return c < 128 && (kClasses[c] & kind);
}

bool isSpace(char16_t c)
{
    return is(c, kSpace);
}

const char16_t *pastSpaces(const char16_t *p, const char16_t *end)
{
    while (p < end && is(*p, kSpace))
        ++p;
    return p;
}

// Past the name that starts at p; p itself when none does.
const char16_t *pastName(const char16_t *p, const char16_t *end)
{
    if (p >= end || !is(*p, kNameStart))
        return p;
    while (++p < end && is(*p, kNameChar)) {
    }
    return p;
}

// Characters XML forbids, and a byte order mark past the first (decoding drops that one), are left
// to Qt's reader. Valid UTF-8 holds no lone surrogate.
bool isPlainChar(char16_t u)
{
    return (u >= 0x20 || u == 0x9 || u == 0xA || u == 0xD) && u != 0xFFFE && u != 0xFFFF && u != 0xFEFF;
}

// What may stand in an attribute value as it is: white space other than a space is normalised
// in values, which is left to Qt's reader.
bool isPlainValueChar(char16_t u)
{
    return u >= 0x20 && u != u'<' && (u < 0xFEFF || (u != 0xFEFF && u != 0xFFFE && u != 0xFFFF));
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
    // About what the program's documents hold, so that neither list grows many times.
    _events.reserve(size_t(utf8.size() / 48));
    _attributes.reserve(size_t(utf8.size() / 24));
    // Decoded once; bytes that are not UTF-8 are left to Qt's reader. A leading byte order mark
    // is dropped, as Qt's reader drops it.
    QStringDecoder decoder(QStringDecoder::Utf8);
    _text = decoder(utf8);
    if (decoder.hasError())
        return false;
    _p = reinterpret_cast<const char16_t *>(_text.constData());
    _end = _p + _text.size();
    if (at("<?xml"_L1) && !declaration())
        return false;
    spaces();
    std::vector<QStringView> open; // the elements not yet ended, the root first
    do {
        if (!element(open, maxDepth, maxValueLength))
            return false;
        // Up to the next tag: text within an element, only white space outside the root.
        const char16_t *const textStart = _p;
        for (; _p < _end && *_p != u'<'; ++_p) {
            const char16_t c = *_p;
            if (c == u'&' || (open.empty() && !isSpace(c)) || !isPlainChar(c))
                return false;
            if (c == u'>' && _p - textStart >= 2 && _p[-1] == u']' && _p[-2] == u']')
                return false;
        }
    } while (!open.empty());
    return _p == _end;
}

// A start tag (with, for an empty element, its end) or an end tag, from its "<"; open is the
// elements not yet ended.
bool PlainXml::element(std::vector<QStringView> &open, int maxDepth, int maxValueLength)
{
    if (_p >= _end || *_p != u'<')
        return false;
    ++_p;
    QStringView tag;
    if (_p < _end && *_p == u'/') {
        ++_p;
        if (!name(&tag))
            return false;
        spaces();
        if (_p >= _end || *_p != u'>' || open.empty() || open.back() != tag)
            return false;
        ++_p;
        open.pop_back();
        _events.push_back({false, tag});
        return true;
    }
    if (!name(&tag) || int(open.size()) >= maxDepth) // "<!" and "<?" end here too
        return false;
    Event start{true, tag, qsizetype(_attributes.size()), 0};
    // A bit for each name by its length and outer letters: a name whose bit is not set yet is
    // new, and only the others are compared with the names before them.
    quint64 seen = 0;
    // The attributes are most of a document: read here with a local cursor.
    const char16_t *p = _p;
    const char16_t *const end = _end;
    for (;;) {
        const char16_t *const before = p;
        p = pastSpaces(p, end);
        if (p >= end)
            return false;
        const char16_t c = *p;
        if (c == u'>' || c == u'/') {
            ++p;
            const bool empty = c == u'/';
            if (empty && (p >= end || *p++ != u'>'))
                return false;
            _p = p;
            start.attributeCount = qsizetype(_attributes.size()) - start.firstAttribute;
            _events.push_back(start);
            if (empty)
                _events.push_back({false, tag});
            else
                open.push_back(tag);
            return true;
        }
        const char16_t *const nameStart = p;
        p = pastName(p, end);
        if (nameStart == before || p == nameStart)
            return false;
        const QStringView attribute(nameStart, p - nameStart);
        if ((attribute.front() == u'x' || attribute.front() == u'X') &&
            attribute.startsWith("xml"_L1, Qt::CaseInsensitive))
            return false;
        QStringView content;
        p = assignment(p, maxValueLength, &content);
        if (!p)
            return false;
        const quint64 bit = quint64(1) << ((attribute.size() * 7 + attribute.front().unicode() * 3 +
                                            attribute.back().unicode()) &
                                           63);
        if (seen & bit) {
            for (auto i = size_t(start.firstAttribute); i < _attributes.size(); ++i) {
                if (_attributes[i].name == attribute)
                    return false;
            }
        }
        seen |= bit;
        _attributes.push_back({attribute, content});
    }
}

bool PlainXml::name(QStringView *out)
{
    const char16_t *const start = _p;
    _p = pastName(_p, _end);
    *out = QStringView(start, _p - start);
    return _p != start;
}

// What follows an attribute's name, from p: "=" and its quoted value, with white space around
// the "="; where it ends, past the closing quote, or null when it is not one. The attributes are
// most of a document, so a value of plain ASCII is taken where it stands.
Q_ALWAYS_INLINE const char16_t *PlainXml::assignment(const char16_t *p, int maxValueLength, QStringView *out)
{
    const char16_t *const end = _end;
    p = pastSpaces(p, end);
    if (p >= end || *p != u'=')
        return nullptr;
    p = pastSpaces(p + 1, end);
    if (p >= end || (*p != u'"' && *p != u'\''))
        return nullptr;
    const char16_t quote = *p++;
    const char16_t *const valueStart = p;
    while (p < end && *p < 128 && !(kClasses[*p] & kValueStop))
        ++p;
    if (p < end && *p == quote) {
        *out = QStringView(valueStart, p - valueStart);
        return out->size() <= maxValueLength ? p + 1 : nullptr;
    }
    // A reference, the other quote, a character past ASCII: the general way.
    _p = valueStart;
    return value(quote, maxValueLength, out) ? _p : nullptr;
}

// Passes over what stands in an attribute value as it is, up to its quote or a reference; false
// at a character that may not stand there, or at the end of the document.
bool PlainXml::valueRun(char16_t quote)
{
    for (; _p < _end; ++_p) {
        const char16_t c = *_p;
        if (c >= 128) {
            if (!isPlainValueChar(c))
                return false;
        } else if (kClasses[c] & kValueStop) {
            if (c == quote || c == u'&')
                return true;
            if (c != u'"' && c != u'\'')
                return false; // "<", or white space that is normalised in values
        }
    }
    return false;
}

// An attribute value up to its closing quote, which is passed.
bool PlainXml::value(char16_t quote, int maxValueLength, QStringView *out)
{
    const char16_t *run = _p;
    if (!valueRun(quote))
        return false;
    if (*_p == quote) {
        *out = QStringView(run, _p - run);
        ++_p;
        return out->size() <= maxValueLength;
    }
    // A reference: the value is decoded from here on.
    QString decoded(reinterpret_cast<const QChar *>(run), _p - run);
    while (*_p == u'&') {
        if (!reference(&decoded))
            return false;
        run = _p;
        if (!valueRun(quote))
            return false;
        decoded.append(reinterpret_cast<const QChar *>(run), _p - run);
    }
    ++_p;
    _decoded.push_back(std::move(decoded));
    *out = _decoded.back();
    return out->size() <= maxValueLength;
}

// "&amp;" and the four others, or "&#N;" / "&#xN;" of a character XML allows; from the "&".
bool PlainXml::reference(QString *out)
{
    ++_p;
    static const std::pair<QLatin1StringView, QChar> named[] = {
        {"amp;"_L1, u'&'}, {"lt;"_L1, u'<'}, {"gt;"_L1, u'>'}, {"quot;"_L1, u'"'}, {"apos;"_L1, u'\''}};
    for (const auto &[text, character] : named) {
        if (at(text)) {
            *out += character;
            _p += text.size();
            return true;
        }
    }
    if (_p >= _end || *_p != u'#')
        return false;
    ++_p;
    const bool hex = _p < _end && *_p == u'x';
    if (hex)
        ++_p;
    char32_t code = 0;
    int digits = 0;
    for (; _p < _end && *_p != u';'; ++_p) {
        const char16_t c = *_p;
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
    if (_p >= _end || digits == 0 || !isXmlChar(code))
        return false;
    ++_p;
    *out += QStringView(QChar::fromUcs4(code));
    return true;
}

// <?xml version="1.0" encoding="UTF-8" standalone="yes"?>, the last two optional, nothing else.
bool PlainXml::declaration()
{
    _p += 5;
    const char *const names[] = {"version", "encoding", "standalone"};
    size_t next = 0;
    for (;;) {
        const char16_t *const before = _p;
        spaces();
        if (at("?>"_L1)) {
            _p += 2;
            return next > 0;
        }
        QStringView key, content;
        if (_p == before || !name(&key))
            return false;
        while (next > 0 && next < std::size(names) && key != QLatin1StringView(names[next]))
            ++next; // the version is not optional, the others are
        if (next == 0 && key != QLatin1StringView(names[0]))
            return false;
        if (next == std::size(names))
            return false;
        _p = assignment(_p, 16, &content);
        if (!_p)
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
    _p = pastSpaces(_p, _end);
}

bool PlainXml::at(QLatin1StringView text) const
{
    return QStringView(_p, _end - _p).startsWith(text);
}
