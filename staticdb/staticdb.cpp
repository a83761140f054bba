#include "staticdb/staticdb.h"

#include "app/lmsettings.h"
#include "common/lmassert.h"
#include "staticdb/memmappedfile.h"
#include "staticdb/staticdblog.h"

#include <QtEndian>

#ifdef __SSE2__
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

namespace {

constexpr char kMagic[32] = "Database subject to copyright.\x1a";
constexpr qint64 kHeaderSize = 64;
constexpr int kMaxWords = 31;
constexpr qint64 kRaritySample = 32 * 1024; // bytes of names a search samples to order its words

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
#if defined(__x86_64__) && defined(__GNUC__)
// The first window at or after *p whose two anchor characters can match (the case bit aside), 32
// windows at a time; -1 when there is none before 32 windows no longer fit, *p left there.
__attribute__((target("avx2"))) qint64 scanAvx2(const uchar *text, qint64 *p, qint64 to, qint64 m, uchar a,
                                                uchar b, qint64 anchorA, qint64 anchorB)
{
    const __m256i caseBit = _mm256_set1_epi8(0x20);
    const __m256i first = _mm256_set1_epi8(char(a | 0x20));
    const __m256i last = _mm256_set1_epi8(char(b | 0x20));
    for (; *p + m - 1 + 32 <= to; *p += 32) {
        const __m256i x = _mm256_or_si256(
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + *p + anchorA)), caseBit);
        const __m256i y = _mm256_or_si256(
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + *p + anchorB)), caseBit);
        const unsigned candidates = unsigned(
            _mm256_movemask_epi8(_mm256_and_si256(_mm256_cmpeq_epi8(x, first), _mm256_cmpeq_epi8(y, last))));
        if (candidates)
            return *p + std::countr_zero(candidates);
    }
    return -1;
}
#endif

// Latin-1 lower case, as a table: the matcher's inner loop must not call into QtCore.
const std::array<uchar, 256> &latin1Lower()
{
    static const std::array<uchar, 256> table = [] {
        std::array<uchar, 256> t;
        for (int c = 0; c < 256; ++c) {
            const char16_t l = QChar::fromLatin1(char(c)).toLower().unicode();
            t[size_t(c)] = l <= 255 ? uchar(l) : uchar(c);
        }
        return t;
    }();
    return table;
}

const std::array<uchar, 256> &identity()
{
    static const std::array<uchar, 256> table = [] {
        std::array<uchar, 256> t;
        for (int c = 0; c < 256; ++c)
            t[size_t(c)] = uchar(c);
        return t;
    }();
    return table;
}

// Case-insensitive substring test over 8-bit text with a skip table.
class IndexedDB::Matcher
{
public:
    // utf8: the names are lower-case UTF-8, so the word is matched byte for byte in that form.
    Matcher(const QString &word, bool exclusion, bool utf8)
        : exclusion(exclusion)
        , _lower(utf8 ? identity() : latin1Lower())
    {
        if (utf8) {
            _forward = word.toLower().toUtf8();
        } else {
            _forward.resize(word.size());
            for (qsizetype i = 0; i < word.size(); ++i) {
                const char16_t c = word.at(i).toLower().unicode();
                _forward[i] = char(c);
                _impossible = _impossible || c > 255; // beyond Latin-1 never matches
            }
        }
        const qsizetype m = _forward.size();
        _reversed = _forward;
        std::reverse(_reversed.begin(), _reversed.end());
        _anchorB = std::max<qsizetype>(m - 1, 0);
        _skip.fill(quint32(m));
        for (qsizetype i = 0; i < m; ++i) {
            const quint32 shift = quint32(std::max<qsizetype>(m - 1 - i, 1));
            if (utf8) {
                _skip[uchar(_forward.at(i))] = shift;
                continue;
            }
            const QChar c = word.at(i);
            for (const char16_t form : {c.toLower().unicode(), c.toUpper().unicode()}) {
                if (form <= 255)
                    _skip[form] = shift;
            }
        }
    }

    qsizetype length() const { return _reversed.size(); }

    // The first occurrence in text[from, to), or -1. For scanning the names of many items in one
    // pass: 16 bytes at a time, windows whose first and last characters can match (a case bit
    // aside) are checked in full.
    qint64 findIn(const uchar *text, qint64 from, qint64 to) const
    {
        const qint64 m = _reversed.size();
        if (_impossible || m == 0 || to - from < m)
            return _impossible || to - from < m ? -1 : from;
        const auto *word = reinterpret_cast<const uchar *>(_forward.constData());
        const auto matchesAt = [&](qint64 p) {
            for (qint64 k = 0; k < m; ++k) {
                if (_lower[text[p + k]] != word[k])
                    return false;
            }
            return true;
        };
        qint64 p = from;
#if defined(__x86_64__) && defined(__GNUC__)
        static const bool wide = __builtin_cpu_supports("avx2");
        if (wide) {
            for (;;) {
                const qint64 at =
                    scanAvx2(text, &p, to, m, word[_anchorA], word[_anchorB], _anchorA, _anchorB);
                if (at < 0)
                    break; // p is where 32 windows no longer fit: the narrower scans go on from there
                if (matchesAt(at))
                    return at;
                p = at + 1;
            }
        }
#endif
#ifdef __SSE2__
        const __m128i caseBit = _mm_set1_epi8(0x20);
        const __m128i firstChar = _mm_set1_epi8(char(word[_anchorA] | 0x20));
        const __m128i lastChar = _mm_set1_epi8(char(word[_anchorB] | 0x20));
        for (; p + m - 1 + 16 <= to; p += 16) {
            const __m128i a = _mm_or_si128(
                _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + p + _anchorA)), caseBit);
            const __m128i b = _mm_or_si128(
                _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + p + _anchorB)), caseBit);
            unsigned candidates = unsigned(
                _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(a, firstChar), _mm_cmpeq_epi8(b, lastChar))));
            while (candidates) {
                const qint64 at = p + std::countr_zero(candidates);
                if (matchesAt(at))
                    return at;
                candidates &= candidates - 1;
            }
        }
#endif
        for (; p + m <= to; ++p) {
            if (matchesAt(p))
                return p;
        }
        return -1;
    }

    bool occursIn(const char *name, quint32 n) const
    {
        const quint32 m = quint32(_reversed.size());
        if (_impossible)
            return false;
        if (m == 0)
            return true;
        const auto *text = reinterpret_cast<const uchar *>(name);
        const auto *word = reinterpret_cast<const uchar *>(_reversed.constData());
        const uchar last = word[0];
        quint32 p = 0;
        while (p + m <= n) {
            // Most windows end in a character that is not the word's last: skip on.
            const uchar end = text[p + m - 1];
            if (_lower[end] != last) {
                p += _skip[end];
                continue;
            }
            quint32 j = 1;
            quint32 q = p + m - 1;
            while (j < m) {
                --q;
                if (_lower[text[q]] != word[j])
                    break;
                ++j;
            }
            if (j == m)
                return true;
            // Signed: a mismatch near the start with a short shift would go below p.
            const qint64 shifted = qint64(q) + _skip[text[q]] - m + 1;
            p = quint32(std::max<qint64>(shifted, qint64(p) + 1));
        }
        return false;
    }

    // The two characters findIn looks for first: the rarest in names like those counted (by
    // byte with the case bit set), so that few windows need a full comparison.
    void chooseAnchors(const std::array<quint32, 256> &counts)
    {
        const qsizetype m = _forward.size();
        const auto rarity = [&](qsizetype k) { return counts[uchar(_forward[k]) | 0x20]; };
        qsizetype a = 0;
        for (qsizetype k = 1; k < m; ++k)
            a = rarity(k) < rarity(a) ? k : a;
        qsizetype b = a == 0 && m > 1 ? 1 : 0;
        for (qsizetype k = 0; k < m; ++k)
            b = k != a && rarity(k) < rarity(b) ? k : b;
        _anchorA = a;
        _anchorB = m > 1 ? b : a;
    }

    bool exclusion;

private:
    const std::array<uchar, 256> &_lower;
    qsizetype _anchorA = 0;
    qsizetype _anchorB = 0;
    QByteArray _reversed;
    QByteArray _forward;
    bool _impossible = false;
    std::array<quint32, 256> _skip;
};

BrowsableDBIterator::BrowsableDBIterator(const IndexEntry *entries, const quint8 *flags, int count,
                                         quint8 flagsRequiredOn, quint8 flagsRequiredOff)
    : _entries(entries)
    , _flags(flags)
    , _end(count)
    , _on(flagsRequiredOn)
    , _off(flagsRequiredOff)
{
    LM_ASSERT((flagsRequiredOn & flagsRequiredOff) == 0);
}

bool IndexedDB::index(const uchar *base, qint64 size, quint32 chunkId, bool *missingChunk)
{
    *missingChunk = false;
    _entries.clear();
    _flags.clear();
    _categories.clear();
    _ownedNames.clear();
    _texts.clear();
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

    IndexEntries entries;
    IndexFlags flagBytes;
    entries.resize(count);
    flagBytes.resize(count);
    std::vector<quint32> categories;
    // Files as we write them have every run after its category and after the runs of the
    // categories before it: then each record is in one run at most and the tree has no cycles,
    // with nothing to check but the order. Other layouts take a second pass (claimRuns).
    bool ordered = true;
    quint64 runsEnd = 1;
    quint64 previousName = 0; // a names area at the very start of the file is no names area
    for (quint32 i = 0; i < count; ++i) {
        const uchar *record = base + table + qint64(i) * 16;
        const quint8 flags = record[0];
        IndexEntry &e = entries[i];
        e.id = read32(record) & 0xFFFFFF;
        const qint64 nameOffset = names + read32(record + 4);
        // Names lie in record order; a length is the distance to the next name less its
        // terminator, so ascending offsets keep every name inside the file.
        if (nameOffset >= size || quint64(nameOffset) <= previousName)
            return false;
        previousName = quint64(nameOffset);
        e.nameOffset = quint32(nameOffset);
        e.value = read32(record + 8);
        e.extra = 0;
        const bool endRecord = i + 1 == count;
        if ((flags & FLAG_CATEGORY) && !endRecord) {
            e.extra = read32(record + 12);
            const quint64 end = quint64(e.value) + e.childCount();
            if (e.childCount() > 0) {
                if (end > count - 1)
                    return false;
                if (e.value <= i || e.value < runsEnd)
                    ordered = false;
                else
                    runsEnd = end;
            }
            categories.push_back(i);
        } else if (!endRecord) {
            const qint64 payload = payloads + read32(record + 12);
            if (payload >= size)
                return false;
            e.extra = quint32(payload);
        }
        flagBytes[i] = quint8(flags | FLAG_SHOWN | FLAG_EXPANDED);
    }
    _entries = std::move(entries);
    _flags = std::move(flagBytes);
    _categories = std::move(categories);
    if (ordered) {
        sortCategories();
    } else if (!claimRuns()) {
        clearIndex();
        return false;
    }
    _size = quint64(size);
    return true;
}

// The runs may lie in any order in the table, but each record may be in one run at most and the
// root in none. Every record then has at most one parent, and following parents from anything
// below the root ends at the root: the tree below it has no cycles and no shared subtrees, so
// walking it ends, and visits each record once.
bool IndexedDB::claimRuns()
{
    // FLAG_EXPANDED marks the records claimed so far.
    for (quint8 &flag : _flags)
        flag &= quint8(~FLAG_EXPANDED);
    for (const quint32 c : _categories) { // in table order, while the runs lie near each other
        const IndexEntry &e = _entries[c];
        for (quint32 i = e.value; i < e.value + e.childCount(); ++i) {
            if (_flags[i] & FLAG_EXPANDED)
                return false;
            _flags[i] |= FLAG_EXPANDED;
        }
    }
    sortCategories();
    const IndexEntry *root = lookup(rootId(), true);
    if (root && (flags(root) & FLAG_EXPANDED))
        return false;
    for (quint8 &flag : _flags)
        flag |= FLAG_EXPANDED;
    return true;
}

void IndexedDB::sortCategories()
{
    _categories.shrink_to_fit();
    // By id; of two categories with one id the first in the table is found.
    std::stable_sort(_categories.begin(), _categories.end(),
                     [this](quint32 a, quint32 b) { return _entries[a].id < _entries[b].id; });
}

void IndexedDB::clearIndex()
{
    _entries = IndexEntries();
    _flags = IndexFlags();
    _categories = std::vector<quint32>();
    _ownedNames.clear();
    _texts.clear();
    _base = nullptr;
    _size = 0;
}

void IndexedDB::adopt(const QStringList &texts, IndexEntries entries, IndexFlags flags)
{
    LM_ASSERT(!entries.empty() && entries.size() == flags.size() &&
              size_t(texts.size()) + 1 == entries.size());
    QByteArray names;
    for (size_t i = 0; i < entries.size(); ++i) {
        entries[i].nameOffset = quint32(names.size());
        if (i + 1 < entries.size()) {
            names += texts.at(qsizetype(i)).toLower().toUtf8().replace('\0', ' ');
            names += '\0';
        }
    }
    _texts = texts;
    _ownedNames = std::move(names);
    _base = reinterpret_cast<const uchar *>(_ownedNames.constData());
    _size = quint64(_ownedNames.size());
    _entries = std::move(entries);
    _flags = std::move(flags);
    _categories.clear();
    for (size_t i = 0; i + 1 < _entries.size(); ++i) {
        _flags[i] |= FLAG_SHOWN | FLAG_EXPANDED;
        if (_flags[i] & FLAG_CATEGORY)
            _categories.push_back(quint32(i));
    }
    sortCategories();
}

QByteArray IndexedDB::nameBytes(const IndexEntry *entry) const
{
    return QByteArray(namePointer(entry), qsizetype(nameLength(entry)));
}

QString IndexedDB::nameText(const IndexEntry *entry) const
{
    const size_t i = size_t(entry - _entries.data());
    if (!_texts.isEmpty())
        return i < size_t(_texts.size()) ? _texts.at(qsizetype(i)) : QString();
    return QString::fromLatin1(nameBytes(entry));
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
        const auto it =
            std::lower_bound(_categories.cbegin(), _categories.cend(), id,
                             [this](quint32 index, quint32 wanted) { return _entries[index].id < wanted; });
        return it == _categories.cend() || _entries[*it].id != id ? nullptr : &_entries[*it];
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

struct IndexedDB::Query
{
    std::vector<Matcher> matchers;
    std::vector<quint32> order; // of the matchers, for items
    quint32 inclusion = 0;
    quint32 exclusion = 0;
    quint8 required = 0;
};

// An item is shown when the words matched along its path and in its own name are exactly the
// inclusion words.
bool IndexedDB::itemShown(const IndexEntry &e, quint8 flag, quint32 inherited, const Query &query,
                          int skip) const
{
    if ((flag & query.required) != query.required || (inherited & query.exclusion))
        return false;
    const bool searched = !(flag & FLAG_NOT_SEARCHED);
    // The missing words first, longest first, stopping at the first that settles it.
    for (const quint32 m : query.order) {
        const quint32 bit = 1u << m;
        if ((inherited & bit) || int(m) == skip)
            continue;
        const bool occurs = searched && query.matchers[m].occursIn(namePointer(&e), nameLength(&e));
        if (occurs != bool(bit & query.inclusion))
            return false;
    }
    return true;
}

bool IndexedDB::walkItems(quint32 begin, quint32 end, quint32 inherited, const Query &query)
{
    int scan = -1; // the longest inclusion word the path lacks: every shown item must hold it
    for (const quint32 m : query.order) {
        if ((query.inclusion & (1u << m)) && !(inherited & (1u << m))) {
            scan = int(m);
            break;
        }
    }
    bool hit = false;
    if (scan < 0 || (inherited & query.exclusion)) {
        for (quint32 i = begin; i < end; ++i) {
            const bool shown = itemShown(_entries[i], _flags[i], inherited, query, -1);
            _flags[i] = quint8((_flags[i] & ~(FLAG_SHOWN | FLAG_EXPANDED)) | (shown ? FLAG_SHOWN : 0));
            hit = hit || shown;
        }
        return hit;
    }
    for (quint32 i = begin; i < end; ++i)
        _flags[i] &= quint8(~(FLAG_SHOWN | FLAG_EXPANDED));
    // One pass over the names for that word; only the items holding it are looked at further.
    const Matcher &word = query.matchers[size_t(scan)];
    const qint64 namesEnd = _entries[end].nameOffset;
    quint32 i = begin;
    for (qint64 at = word.findIn(_base, _entries[begin].nameOffset, namesEnd); at >= 0;) {
        // The item holding the hit: gallop forward from the last one, then halve. Hits come in
        // order, and near ones stay in the cache.
        quint32 low = i;
        quint32 step = 1;
        quint32 high = low + step;
        while (high < end && _entries[high].nameOffset <= at) {
            low = high;
            step *= 2;
            high = low + step;
        }
        high = std::min(high, end);
        const auto owner =
            std::upper_bound(_entries.begin() + low + 1, _entries.begin() + high, at,
                             [](qint64 offset, const IndexEntry &e) { return offset < e.nameOffset; });
        i = quint32(owner - _entries.begin()) - 1;
        const qint64 nameEnd = _entries[i + 1].nameOffset - 1; // the terminator
        if (at + word.length() <= nameEnd && !(_flags[i] & FLAG_NOT_SEARCHED) &&
            itemShown(_entries[i], _flags[i], inherited, query, scan)) {
            _flags[i] |= FLAG_SHOWN;
            hit = true;
        }
        if (at + word.length() <= nameEnd) // settled: on to the next name
            at = i + 1 < end ? word.findIn(_base, _entries[i + 1].nameOffset, namesEnd) : -1;
        else
            at = word.findIn(_base, at + 1, namesEnd);
    }
    return hit;
}

// The children of a category and all below them; pending is scratch space for the categories
// still to visit, kept by the caller across calls.
void IndexedDB::setSubtree(quint32 index, quint8 set, quint8 clear, std::vector<quint32> &pending)
{
    pending.clear();
    pending.push_back(index);
    while (!pending.empty()) {
        const IndexEntry &e = _entries[pending.back()];
        pending.pop_back();
        for (quint32 i = e.value; i < e.value + e.childCount(); ++i) {
            _flags[i] = quint8((_flags[i] & ~clear) | set);
            if (_flags[i] & FLAG_CATEGORY)
                pending.push_back(i);
        }
    }
}

// Depth first over the runs below the root. The runs still open are kept on a stack of our own:
// how deep categories nest is for the file to say, and it must not be able to exhaust the
// thread's stack.
void IndexedDB::walk(quint32 rootIndex, const Query &query)
{
    struct Run
    {
        quint32 category; // whose children these are
        quint32 next;
        quint32 end;
        quint32 inherited; // the words matched along the path to them
        bool hit;
    };
    std::vector<Run> runs;
    std::vector<quint32> pending;
    const IndexEntry &root = _entries[rootIndex];
    runs.push_back({rootIndex, root.value, root.value + root.childCount(), 0, false});
    for (;;) {
        Run &run = runs.back();
        if (run.next == run.end) {
            const Run done = run;
            runs.pop_back();
            if (runs.empty())
                return; // the root itself is not tested
            if (done.hit) {
                _flags[done.category] |= FLAG_SHOWN | FLAG_EXPANDED;
                runs.back().hit = true;
            }
            continue;
        }
        const quint32 i = run.next++;
        quint8 &flag = _flags[i];
        const IndexEntry &e = _entries[i];
        const bool category = flag & FLAG_CATEGORY;
        if ((flag & query.required) != query.required) {
            flag &= quint8(~(FLAG_SHOWN | FLAG_EXPANDED));
            if (category)
                setSubtree(i, 0, FLAG_SHOWN | FLAG_EXPANDED, pending);
            continue;
        }
        if (!category) {
            // The items of a run, their names side by side in the file, are searched together.
            quint32 end = i + 1;
            while (end < run.end && !(_flags[end] & FLAG_CATEGORY))
                ++end;
            run.hit = walkItems(i, end, run.inherited, query) || run.hit;
            run.next = end;
            continue;
        }
        const bool searched = !(flag & FLAG_NOT_SEARCHED);
        quint32 mask = run.inherited;
        if (searched) {
            for (size_t m = 0; m < query.matchers.size(); ++m) {
                if (query.matchers[m].occursIn(namePointer(&e), nameLength(&e)))
                    mask |= 1u << m;
            }
        }
        if (mask == query.inclusion) {
            flag = quint8((flag | FLAG_SHOWN) & ~FLAG_EXPANDED);
            setSubtree(i, FLAG_SHOWN, FLAG_EXPANDED, pending);
            run.hit = true;
            continue;
        }
        flag &= quint8(~(FLAG_SHOWN | FLAG_EXPANDED));
        // An excluded word stays in the mask of everything below: nothing there can match.
        if (mask & query.exclusion)
            setSubtree(i, 0, FLAG_SHOWN | FLAG_EXPANDED, pending);
        else
            runs.push_back({i, e.value, e.value + e.childCount(), mask, false}); // run is stale from here
    }
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

    Query q;
    q.required = requiredFlags;
    qsizetype longest = 0;
    for (const QString &w : words) {
        const bool exclusion = w.startsWith(QLatin1Char('-'));
        const QString text = exclusion ? w.mid(1) : w;
        (exclusion ? q.exclusion : q.inclusion) |= 1u << q.matchers.size();
        longest = std::max(longest, text.size());
        q.matchers.emplace_back(text, exclusion, !_texts.isEmpty());
    }
    if (longest < 3)
        return false;
    if (!suppress && !_entries.empty()) {
        // Items test their rarest inclusion word first: it rules out most, and most names are
        // scanned for it in one pass. Rarity comes from a sample of the names.
        std::vector<qint64> seen(q.matchers.size(), 0);
        const qint64 sampleFrom = _entries.front().nameOffset;
        const qint64 sampleTo = std::min<qint64>(_entries.back().nameOffset, sampleFrom + kRaritySample);
        std::array<quint32, 256> counts{};
        for (qint64 at = sampleFrom; at < sampleTo; ++at)
            ++counts[_base[at] | 0x20];
        for (quint32 m = 0; m < q.matchers.size(); ++m) {
            q.matchers[m].chooseAnchors(counts);
            q.order.push_back(m);
            for (qint64 at = q.matchers[m].findIn(_base, sampleFrom, sampleTo); at >= 0 && seen[m] < 1000;
                 at = q.matchers[m].findIn(_base, at + 1, sampleTo))
                ++seen[m];
        }
        std::stable_sort(q.order.begin(), q.order.end(), [&q, &seen](quint32 a, quint32 b) {
            if (q.matchers[a].exclusion != q.matchers[b].exclusion)
                return !q.matchers[a].exclusion;
            if (seen[a] != seen[b])
                return seen[a] < seen[b];
            return q.matchers[a].length() > q.matchers[b].length();
        });
        const IndexEntry *root = lookup(rootId(), true);
        LM_ASSERT(root);
        walk(quint32(root - _entries.data()), q);
    }
    return true;
}

bool StaticDB::readHeader(const uchar *base, qint64 size, QString *creationDate)
{
    if (size < kHeaderSize || std::memcmp(base, kMagic, 32) != 0 || read32(base + 32) != 1)
        return false;
    *creationDate = QString::fromLatin1(reinterpret_cast<const char *>(base + 36), 10);
    return true;
}

QString StaticDB::fileName()
{
    return LmSettings::contentPath() + QStringLiteral("static.db");
}

namespace {

// Every StaticDB of the process, so that an update can close and reopen them all.
std::vector<StaticDB *> &openDatabases()
{
    static std::vector<StaticDB *> databases;
    return databases;
}

} // namespace

StaticDB::StaticDB(quint32 chunkId, bool *failed)
    : _chunkId(chunkId)
{
    LM_ASSERT(chunkId > 0);
    openDatabases().push_back(this);
    open(failed);
}

StaticDB::~StaticDB()
{
    close();
    std::erase(openDatabases(), this);
}

bool StaticDB::open(bool *failed)
{
    if (failed)
        *failed = false;
    _error.clear();
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
        if (!readHeader(base, size, &_created)) {
            _error = QStringLiteral(
                "Static food/exercise database is corrupt (bad header). Please reinstall the software.");
        } else {
            if (!index(base, size, _chunkId, &missingChunk)) {
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
        return true;
    close(); // a database that failed holds no share of the mapping
    qCWarning(lcStaticDb, "error in staticdb constructor: %s", qUtf8Printable(_error));
    if (!failed)
        Lm::fatal(_error);
    *failed = true;
    return false;
}

void StaticDB::close()
{
    clearIndex();
    if (!_usesMapping)
        return;
    _usesMapping = false;
    SharedMapping &mapping = shared();
    if (--mapping.users < 1)
        mapping.file.reset();
}

void StaticDB::closeAll()
{
    for (StaticDB *db : openDatabases())
        db->close();
}

bool StaticDB::reopenAll()
{
    bool all = true;
    for (StaticDB *db : openDatabases()) {
        bool failed = false;
        if (!db->isOpen())
            db->open(&failed);
        all = all && !failed;
    }
    return all;
}
