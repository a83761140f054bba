#pragma once

// The reference database: trees of records (chunk 1 foods, chunk 2 exercises) in one read-only,
// memory-mapped file. IndexedDB keeps a 16-byte entry and a flag byte per record and answers
// browse, lookup and word search; StaticDB binds it to one chunk of the shared mapping of
// "static.db" in the content folder.
//
// Unlike the format's first readers we do not trust the file once its header passes: it arrives
// over the network. Every directory entry, record, name, child run and payload offset is checked
// against the file at open, and a file that fails is refused as corrupt. The child runs may lie
// in any order, but must make a tree below the root; nothing that walks it recurses, so however
// deep a file nests its categories, it cannot exhaust the stack.

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class MemMappedFile;

// Flag bits of a record in memory.
enum StaticDbFlag : quint8 {
    FLAG_SHOWN = 0x01,
    FLAG_EXPANDED = 0x02,
    FLAG_FILTERS = 0x3C,
    FLAG_NOT_SEARCHED = 0x40,
    FLAG_CATEGORY = 0x80,
};

// One record of the index: 16 bytes, with the flags kept beside it in a byte vector. Offsets
// count from the indexed bytes' start (the mapping, or a dynamic index's own name buffer).
struct IndexEntry
{
    // No initialisers: an index of a million records is filled once, not zeroed first.
    quint32 id;
    quint32 nameOffset;
    quint32 value; // category: index of the first child; leaf: the record's 32-bit value
    quint32 extra; // category: child categories << 16 | child items; leaf: payload offset

    quint32 childCategories() const { return extra >> 16; }
    quint32 childItems() const { return extra & 0xFFFF; }
    quint32 childCount() const { return childCategories() + childItems(); }
};

// Vectors whose resize() leaves trivial elements uninitialised, for buffers filled right after.
template <typename T> struct DefaultInitAllocator : std::allocator<T>
{
    template <typename U> struct rebind
    {
        using other = DefaultInitAllocator<U>;
    };
    using std::allocator<T>::allocator;
    template <typename U> void construct(U *p) noexcept { ::new (static_cast<void *>(p)) U; }
    template <typename U, typename... Args> void construct(U *p, Args &&...args)
    {
        ::new (static_cast<void *>(p)) U(std::forward<Args>(args)...);
    }
};
using IndexEntries = std::vector<IndexEntry, DefaultInitAllocator<IndexEntry>>;
using IndexFlags = std::vector<quint8, DefaultInitAllocator<quint8>>;

// Yields the entries of a run whose flags have every bit of on and none of off.
class BrowsableDBIterator
{
public:
    BrowsableDBIterator(const IndexEntry *entries, const quint8 *flags, int count, quint8 flagsRequiredOn,
                        quint8 flagsRequiredOff);
    // nullptr at the end.
    const IndexEntry *next()
    {
        const quint8 mask = _on | _off;
        int i = _position;
        while (i < _end && (_flags[i] & mask) != _on)
            ++i;
        _position = i < _end ? i + 1 : _end;
        return i < _end ? &_entries[i] : nullptr;
    }
    quint8 flagsOf(const IndexEntry *entry) const { return _flags[entry - _entries]; }

private:
    const IndexEntry *_entries;
    const quint8 *_flags;
    int _position = 0;
    int _end;
    quint8 _on;
    quint8 _off;
};

class BrowsableDB
{
public:
    virtual ~BrowsableDB() = default;
    virtual BrowsableDBIterator *children(quint32 categoryId, quint8 on, quint8 off) const = 0;
    virtual BrowsableDBIterator *all(quint8 on, quint8 off) const = 0;
    virtual bool search(const QString &query, bool suppress, quint8 requiredFlags) = 0;
    virtual void reset() = 0;
    virtual quint32 rootId() const = 0;
    virtual bool hasChildren(quint32 categoryId, quint8 on, quint8 off) const = 0;

    // Shown records that are not categories.
    BrowsableDBIterator *items(quint32 categoryId) const
    {
        return children(categoryId, FLAG_SHOWN, FLAG_CATEGORY);
    }
};

class IndexedDB : public BrowsableDB
{
public:
    BrowsableDBIterator *children(quint32 categoryId, quint8 on, quint8 off) const override;
    BrowsableDBIterator *all(quint8 on, quint8 off) const override;
    bool search(const QString &query, bool suppress, quint8 requiredFlags) override;
    void reset() override;
    quint32 rootId() const override { return 0; }
    bool hasChildren(quint32 categoryId, quint8 on, quint8 off) const override;

    // Categories and items are separate id spaces.
    const IndexEntry *lookup(quint32 id, bool isCategory) const;
    quint8 flags(const IndexEntry *entry) const { return _flags[size_t(entry - _entries.data())]; }
    bool isCategory(const IndexEntry *entry) const { return flags(entry) & FLAG_CATEGORY; }
    int recordCount() const { return int(_entries.size()); }

    // A record's name: its length is the distance to the next record's name less the terminator.
    const char *namePointer(const IndexEntry *entry) const
    {
        return reinterpret_cast<const char *>(_base + entry->nameOffset);
    }
    quint32 nameLength(const IndexEntry *entry) const { return entry[1].nameOffset - entry->nameOffset - 1; }
    // The bytes searched: Latin-1 in the file; in an index built in memory, lower-case UTF-8.
    QByteArray nameBytes(const IndexEntry *entry) const;
    QString nameText(const IndexEntry *entry) const;
    // A leaf's payload: the bytes from its start to the end of the file (empty for categories and
    // records without one).
    QByteArrayView payload(const IndexEntry *entry) const;

    // Indexes one chunk of a mapped file; false (and nothing indexed) for a file that does not
    // hold the chunk in full. missingChunk tells a well-formed file without that chunk.
    bool index(const uchar *base, qint64 size, quint32 chunkId, bool *missingChunk);

protected:
    void clearIndex();
    // Takes over an index built in memory: texts are the names in record order (the last entry
    // an end record), categories have FLAG_CATEGORY set in flags. Names are searched in any
    // script, without regard to case.
    void adopt(const QStringList &texts, IndexEntries entries, IndexFlags flags);

private:
    class Matcher;
    struct Query;
    void walk(quint32 rootIndex, const Query &query);
    bool walkItems(quint32 begin, quint32 end, quint32 inherited, const Query &query);
    bool itemShown(const IndexEntry &e, quint8 flag, quint32 inherited, const Query &query, int skip) const;
    void sortCategories();
    void setSubtree(quint32 index, quint8 set, quint8 clear, std::vector<quint32> &pending);
    bool claimRuns();

    const uchar *_base = nullptr;
    quint64 _size = 0;
    QByteArray _ownedNames; // dynamic indexes: the names lower-cased, as UTF-8
    QStringList _texts;     // and as they are written
    IndexEntries _entries;
    IndexFlags _flags;
    std::vector<quint32> _categories; // indexes of the category records, by id
};

class StaticDB : public IndexedDB
{
public:
    // Opens (or shares) the mapping of static.db and indexes the chunk. Without failed, a failure
    // is fatal; with it, *failed tells.
    explicit StaticDB(quint32 chunkId, bool *failed = nullptr);
    ~StaticDB() override;

    QString creationDate() const { return _created; } // "yyyy-MM-dd"
    QString errorString() const { return _error; }
    bool isOpen() const { return _usesMapping; }

    static QString fileName(); // content folder + "static.db"
    // Whether the bytes start with a header of the format we read (magic and version); its
    // creation date into *creationDate.
    static bool readHeader(const uchar *base, qint64 size, QString *creationDate);

    // Every open database lets go of the file (so that it can be replaced), and takes it up again
    // afterwards; reopening never ends the program: false when a database did not open.
    static void closeAll();
    static bool reopenAll();

private:
    bool open(bool *failed);
    void close();

    quint32 _chunkId;
    QString _created;
    QString _error;
    bool _usesMapping = false;
};
