#pragma once

// Writes the reference database format from an in-memory tree: big-endian throughout; a file
// header with the creation date, a chunk directory, and per chunk a table of 16-byte records in
// which every category's children form one contiguous run (child categories first), the names in
// record order ending with an end record, and the leaves' payloads. The tree of each chunk hangs
// from a category with id 0, which is record 0; the runs follow it breadth first unless asked
// otherwise.

#include <QByteArray>
#include <QDate>
#include <QList>
#include <QString>

#include <array>
#include <optional>
#include <vector>

struct StaticDbNode
{
    bool category = false;
    quint32 id = 0;        // 24 bits
    QByteArray name;       // Latin-1, no zero byte
    quint8 flags = 0;      // 0x40 (name not searched) and the filter bits 0x3C
    quint32 leafValue = 0; // leaves: kept in the index with the record
    QByteArray payload;    // leaves
    std::vector<StaticDbNode> children;
};

// Nutrient positions of a food payload that the program reads.
enum StaticFoodPosition {
    POS_CALORIES = 0,
    POS_CARB = 1,
    POS_FAT = 2,
    POS_PROTEIN = 3,
    POS_FIBER = 4,
    POS_CALCIUM = 7,
    POS_SODIUM = 9,
    POS_SATURATED_FAT = 22,
    POS_CHOLESTEROL = 27,
    POS_SUGAR = 29,
};

struct StaticFoodServing
{
    float size = 0.0f; // grams (or millilitres) of one serving
    QByteArray name;
};

class StaticDbWriter
{
public:
    enum class Layout { BreadthFirst, DepthFirst };
    explicit StaticDbWriter(const QDate &created, Layout layout = Layout::BreadthFirst);

    // The chunk's top-level records are the children of root (whose own id must be 0).
    void addChunk(quint32 chunkId, const StaticDbNode &root);

    QByteArray build() const;
    // Atomic write; false with a reason in *error.
    bool write(const QString &path, QString *error) const;

    // Presence-mask encoding: values by position, absent ones left out.
    static QByteArray encodeValues(const std::vector<std::optional<float>> &positions);
    static QByteArray foodPayload(quint32 numeric, const QByteArray &secondText,
                                  const std::vector<std::optional<float>> &nutrients, char measureKind,
                                  std::optional<float> referenceQuantity,
                                  const QList<StaticFoodServing> &servings);
    static QByteArray exercisePayload(std::optional<float> burnRate);

private:
    QDate _created;
    Layout _layout;
    std::vector<std::pair<quint32, StaticDbNode>> _chunks;
};
