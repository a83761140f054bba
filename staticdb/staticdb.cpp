#include "staticdb/staticdb.h"

#include "app/lmsettings.h"
#include "common/lmassert.h"
#include "staticdb/memmappedfile.h"
#include "staticdb/staticdblog.h"

#include <QtEndian>

#include <cstring>
#include <memory>

namespace {

constexpr char kMagic[32] = "Database subject to copyright.\x1a";
constexpr qint64 kHeaderSize = 64;
constexpr int kMaxWords = 31;

quint32 read32(const uchar *p)
{
    return qFromBigEndian<quint32>(p);
}

// The mapping of static.db, shared by every open database and counted.
struct SharedMapping
{
    std::unique_ptr<MemMappedFile> file;
    int users = 0;
};

SharedMapping &shared()
{
    static SharedMapping mapping;
    return mapping;
}

} // namespace

// Case-insensitive substring test over 8-bit text with a skip table.
class IndexedDB::Matcher
{
public:
    Matcher(const QString &word, bool exclusion)
        : exclusion(exclusion)
    {
        const qsizetype m = word.size();
        _reversed.resize(m);
        for (qsizetype i = 0; i < m; ++i) {
            const char16_t c = word.at(m - 1 - i).toLower().unicode();
            _reversed[i] = c > 255 ? '\0' : char(c); // beyond Latin-1 never matches
        }
        _skip.fill(quint32(m));
        for (qsizetype i = 0; i < m; ++i) {
            const QChar c = word.at(i);
            const quint32 shift = quint32(std::max<qsizetype>(m - 1 - i, 1));
            for (const char16_t form : {c.toLower().unicode(), c.toUpper().unicode()}) {
                if (form <= 255)
                    _skip[form] = shift;
            }
        }
    }

    bool occursIn(const char *text, quint32 n) const
    {
        const quint32 m = quint32(_reversed.size());
        if (m == 0)
            return true;
        quint32 p = 0;
        while (p + m <= n) {
            quint32 j = 0;
            quint32 q = p + m - 1;
            while (j < m) {
                const uchar c = uchar(text[q]);
                if (_reversed[j] == '\0' || lower(c) != uchar(_reversed[j]))
                    break;
                ++j;
                if (j < m)
                    --q;
            }
            if (j == m)
                return true;
            // Signed: a mismatch near the start with a short shift would go below p.
            const qint64 shifted = qint64(q) + _skip[uchar(text[q])] - m + 1;
            p = quint32(std::max<qint64>(shifted, qint64(p) + 1));
        }
        return false;
    }

    bool exclusion;

private:
    static uchar lower(uchar c) { return uchar(QChar::fromLatin1(char(c)).toLower().unicode()); }

    QByteArray _reversed;
    std::array<quint32, 256> _skip;
};

BrowsableDBIterator::BrowsableDBIterator(const IndexEntry *entries, const quint8 *flags, int count,
                                         quint8 flagsRequiredOn, quint8 flagsRequiredOff)
    : _entries(entries)
    , _flags(flags)
    , _remaining(count)
    , _on(flagsRequiredOn)
    , _off(flagsRequiredOff)
{
    LM_ASSERT((flagsRequiredOn & flagsRequiredOff) == 0);
}

const IndexEntry *BrowsableDBIterator::next()
{
    while (_remaining > 0) {
        const int i = _position++;
        --_remaining;
        if ((_flags[i] & (_on | _off)) == _on)
            return &_entries[i];
    }
    return nullptr;
}

bool IndexedDB::index(const uchar *base, qint64 size, quint32 chunkId, bool *missingChunk)
{
    *missingChunk = false;
    _entries.clear();
    _flags.clear();
    _categories.clear();
    _ownedNames.clear();
    _base = base;
    _size = 0;
    // Offsets in the index are 32-bit.
    if (size > qint64(0xFFFFFFFF))
        return false;

    qint64 chunk = -1;
    for (qint64 entry = kHeaderSize;; entry += 8) {
        if (entry + 8 > size)
            return false;
        const quint32 id = read32(base + entry);
        if (id == 0) {
            *missingChunk = true;
            return false;
        }
        if (id == chunkId) {
            chunk = read32(base + entry + 4);
            break;
        }
    }
    if (chunk + 16 > size)
        return false;
    const quint32 count = read32(base + chunk);
    const qint64 table = chunk + read32(base + chunk + 4);
    const qint64 names = chunk + read32(base + chunk + 8);
    const qint64 payloads = chunk + read32(base + chunk + 12);
    if (count < 1 || table + qint64(count) * 16 > size || names > size || payloads > size)
        return false;

    std::vector<IndexEntry> entries(count);
    std::vector<quint8> flagBytes(count);
    // Every record may belong to one child run only, and runs lie after their category: the tree
    // then has no cycles and no shared subtrees, so walking it always ends.
    std::vector<bool> claimed(count, false);
    QHash<quint32, quint32> categories;
    for (quint32 i = 0; i < count; ++i) {
        const uchar *record = base + table + qint64(i) * 16;
        const quint8 flags = record[0];
        IndexEntry &e = entries[i];
        e.id = read32(record) & 0xFFFFFF;
        const qint64 nameOffset = names + read32(record + 4);
        if (nameOffset >= size)
            return false;
        e.nameOffset = quint32(nameOffset);
        e.value = read32(record + 8);
        const bool endRecord = i + 1 == count;
        if ((flags & FLAG_CATEGORY) && !endRecord) {
            e.extra = read32(record + 12);
            const quint64 end = quint64(e.value) + e.childCount();
            if (end > count - 1 || (e.childCount() > 0 && e.value <= i))
                return false;
            for (quint64 child = e.value; child < end; ++child) {
                if (claimed[child])
                    return false;
                claimed[child] = true;
            }
            categories.insert(e.id, i);
        } else if (!endRecord) {
            const qint64 payload = payloads + read32(record + 12);
            if (payload >= size)
                return false;
            e.extra = quint32(payload);
        }
        flagBytes[i] = quint8(flags | FLAG_SHOWN | FLAG_EXPANDED);
    }
    // Names lie in record order: a length is the distance to the next name less its terminator.
    for (quint32 i = 0; i + 1 < count; ++i) {
        if (entries[i + 1].nameOffset <= entries[i].nameOffset || base[entries[i + 1].nameOffset - 1] != '\0')
            return false;
    }
    _size = quint64(size);
    _entries = std::move(entries);
    _flags = std::move(flagBytes);
    _categories = std::move(categories);
    return true;
}

void IndexedDB::adopt(QByteArray names, std::vector<IndexEntry> entries, std::vector<quint8> flags)
{
    LM_ASSERT(!entries.empty() && entries.size() == flags.size());
    _ownedNames = std::move(names);
    _base = reinterpret_cast<const uchar *>(_ownedNames.constData());
    _size = quint64(_ownedNames.size());
    _entries = std::move(entries);
    _flags = std::move(flags);
    _categories.clear();
    for (size_t i = 0; i + 1 < _entries.size(); ++i) {
        _flags[i] |= FLAG_SHOWN | FLAG_EXPANDED;
        if (_flags[i] & FLAG_CATEGORY)
            _categories.insert(_entries[i].id, quint32(i));
    }
}

QByteArray IndexedDB::nameBytes(const IndexEntry *entry) const
{
    return QByteArray(namePointer(entry), qsizetype(nameLength(entry)));
}

QByteArrayView IndexedDB::payload(const IndexEntry *entry) const
{
    if (isCategory(entry) || entry->extra == 0 || entry->extra >= _size)
        return {};
    return QByteArrayView(_base + entry->extra, qsizetype(_size - entry->extra));
}

const IndexEntry *IndexedDB::lookup(quint32 id, bool isCategory) const
{
    if (isCategory) {
        const auto it = _categories.constFind(id);
        return it == _categories.cend() ? nullptr : &_entries[*it];
    }
    for (size_t i = 0; i + 1 < _entries.size(); ++i) {
        if (_entries[i].id == id && !(_flags[i] & FLAG_CATEGORY))
            return &_entries[i];
    }
    return nullptr;
}

BrowsableDBIterator *IndexedDB::children(quint32 categoryId, quint8 on, quint8 off) const
{
    const IndexEntry *category = lookup(categoryId, true);
    if (!category)
        return nullptr;
    return new BrowsableDBIterator(&_entries[category->value], &_flags[category->value],
                                   int(category->childCount()), on, off);
}

BrowsableDBIterator *IndexedDB::all(quint8 on, quint8 off) const
{
    return new BrowsableDBIterator(_entries.data(), _flags.data(), int(_entries.size()) - 1, on, off);
}

bool IndexedDB::hasChildren(quint32 categoryId, quint8 on, quint8 off) const
{
    std::unique_ptr<BrowsableDBIterator> it(children(categoryId, on, off));
    return it && it->next();
}

void IndexedDB::reset()
{
    for (quint8 &flag : _flags)
        flag = quint8((flag & ~FLAG_EXPANDED) | FLAG_SHOWN);
    for (size_t i = 0; i + 1 < _entries.size(); ++i) {
        if (_entries[i + 1].nameOffset < _entries[i].nameOffset)
            qCDebug(lcStaticDb, "names are not in order!");
    }
}

void IndexedDB::setSubtree(quint32 index, quint8 set, quint8 clear)
{
    const IndexEntry &e = _entries[index];
    for (quint32 i = e.value; i < e.value + e.childCount(); ++i) {
        _flags[i] = quint8((_flags[i] & ~clear) | set);
        if (_flags[i] & FLAG_CATEGORY)
            setSubtree(i, set, clear);
    }
}

bool IndexedDB::walk(quint32 first, quint32 count, quint32 inherited, quint32 inclusion, quint8 required,
                     const std::vector<Matcher> &matchers)
{
    bool hit = false;
    for (quint32 i = first; i < first + count; ++i) {
        quint8 &flag = _flags[i];
        const bool category = flag & FLAG_CATEGORY;
        if ((flag & required) != required) {
            flag &= quint8(~(FLAG_SHOWN | FLAG_EXPANDED));
            if (category)
                setSubtree(i, 0, FLAG_SHOWN | FLAG_EXPANDED);
            continue;
        }
        quint32 mask = inherited;
        if (!(flag & FLAG_NOT_SEARCHED)) {
            for (size_t m = 0; m < matchers.size(); ++m) {
                if (matchers[m].occursIn(namePointer(&_entries[i]), nameLength(&_entries[i])))
                    mask |= 1u << m;
            }
        }
        if (mask == inclusion) {
            flag = quint8((flag | FLAG_SHOWN) & ~FLAG_EXPANDED);
            if (category)
                setSubtree(i, FLAG_SHOWN, FLAG_EXPANDED);
            hit = true;
            continue;
        }
        flag &= quint8(~(FLAG_SHOWN | FLAG_EXPANDED));
        if (category &&
            walk(_entries[i].value, _entries[i].childCount(), mask, inclusion, required, matchers)) {
            flag |= FLAG_SHOWN | FLAG_EXPANDED;
            hit = true;
        }
    }
    return hit;
}

bool IndexedDB::search(const QString &query, bool suppress, quint8 requiredFlags)
{
    QStringList words;
    QString word;
    for (const QChar c : query) {
        if (c.isSpace()) {
            if (!word.isEmpty())
                words.append(word);
            word.clear();
        } else {
            word += c;
        }
    }
    if (!word.isEmpty())
        words.append(word);
    if (words.size() > kMaxWords)
        return false;

    std::vector<Matcher> matchers;
    quint32 inclusion = 0;
    qsizetype longest = 0;
    for (const QString &w : words) {
        const bool exclusion = w.startsWith(QLatin1Char('-'));
        const QString text = exclusion ? w.mid(1) : w;
        if (!exclusion)
            inclusion |= 1u << matchers.size();
        longest = std::max(longest, text.size());
        matchers.emplace_back(text, exclusion);
    }
    if (longest < 3)
        return false;
    if (!suppress) {
        const IndexEntry *root = lookup(rootId(), true);
        LM_ASSERT(root);
        walk(root->value, root->childCount(), 0, inclusion, requiredFlags, matchers);
    }
    return true;
}

QString StaticDB::fileName()
{
    return LmSettings::contentPath() + QStringLiteral("static.db");
}

StaticDB::StaticDB(quint32 chunkId, bool *failed)
{
    LM_ASSERT(chunkId > 0);
    if (failed)
        *failed = false;
    SharedMapping &mapping = shared();
    if (!mapping.file) {
        auto file = std::make_unique<MemMappedFile>(fileName());
        if (file->isValid())
            mapping.file = std::move(file);
    }
    if (!mapping.file) {
        _error = QStringLiteral("Couldn't load food/exercise database ") + fileName();
    } else {
        ++mapping.users;
        _usesMapping = true;
        const uchar *base = mapping.file->base();
        const qint64 size = mapping.file->size();
        bool missingChunk = false;
        if (size < kHeaderSize || std::memcmp(base, kMagic, 32) != 0 || read32(base + 32) != 1) {
            _error = QStringLiteral(
                "Static food/exercise database is corrupt (bad header). Please reinstall the software.");
        } else {
            _created = QString::fromLatin1(reinterpret_cast<const char *>(base + 36), 10);
            if (!index(base, size, chunkId, &missingChunk)) {
                _error = missingChunk
                             ? QStringLiteral("Static food/exercise database is corrupt (missing chunk). "
                                              "Please reinstall the software.")
                             : QStringLiteral("Static food/exercise database is corrupt (bad header). "
                                              "Please reinstall the software.");
            } else if (!lookup(rootId(), true)) {
                _error = QStringLiteral(
                    "Static food/exercise database is corrupt (bad header). Please reinstall the software.");
            }
        }
    }
    if (_error.isEmpty())
        return;
    // A database that failed holds no share of the mapping.
    if (_usesMapping) {
        _usesMapping = false;
        if (--mapping.users < 1)
            mapping.file.reset();
    }
    qCWarning(lcStaticDb, "error in staticdb constructor: %s", qUtf8Printable(_error));
    if (!failed)
        Lm::fatal(_error);
    *failed = true;
}

StaticDB::~StaticDB()
{
    if (!_usesMapping)
        return;
    SharedMapping &mapping = shared();
    if (--mapping.users < 1)
        mapping.file.reset();
}
