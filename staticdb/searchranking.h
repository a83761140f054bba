#pragma once

// The order in which people see the items a search matched. The word search decides what
// matches; this decides what comes first, strongest rule first:
//  1. What the profile eats: favourites, then the items it has logged, most used first. Only
//     names that hold every word as a whole word, spelled as typed, one of them in the thing
//     or its kind ("oat" that is a goat does not count, nor "salt" in "Broccoli, with salt").
//  2. Whole words over words found inside others: "salmon" is not "Salmonberries". A plural in
//     -s, -es or -ies is the same word, and so are the words of a set in searchwords.txt
//     ("yoghurt" and "yogurt", "cycling" and "bicycling"), two words a name writes as one
//     ("soy milk", "Soymilk") and one word for two of a name's ("icecream", "Ice cream"). A
//     word as typed comes before one matched loosely: a typo away ("fried", "dried"), or
//     "cooked" for a way of cooking ("Fish, salmon, cooked" for "baked"). A word the name says
//     it is without ("other than cola", "non-soy") is not there. Of names without a word, those
//     whose thing is the other words come first ("Beverages, tea" for "iced tea", "Rowing,
//     stationary" for "rowing machine"), then those with the last word typed ("black coffee").
//  3. The thing itself over its preparation: a name whose first comma-separated part is
//     exactly the query (or with the next part, its kind: "Rice, brown" for "brown rice") comes
//     first, then names with more of the words in the thing (ways of cooking and forms aside:
//     names give them after it), then those whose thing holds no other word ("Cereals, oats"
//     before "Oat bran" for "oats cooked"). After a class
//     ("Beverages, coffee", "Fish, salmon") the thing is the part that follows; a filler
//     after the thing ("Chicken, broilers or fryers, breast") is passed over. Then the way of
//     cooking as typed before one alike ("roasted" for "baked").
//  4. Groups: a group whose name holds a word of the query (the "Walking" activities for
//     "walking") lifts its items; brand names (a word in capitals in the thing or its kind
//     that the query does not name: "McDONALD'S", "Cereals, QUAKER", "PIZZA HUT 12" Cheese
//     Pizza") and the lowered groups ("Baby Foods", "Fast Foods", ...) fall unless the query
//     names them, a brand in a lowered group below the group's plain names. This weighs more
//     than where in the thing the words are: "cola" is "Beverages, carbonated, cola" before
//     "Beverages, The COCA-COLA company, ...".
//  5. Plain forms: parts few people mean ("giblets", "skin") after the rest; then a plain word
//     ("raw", "whole", "brewed", ...) right after the thing ("Milk, whole"), then one anywhere
//     in the name; then fewer processed forms ("dried", "canned") and hardest forms of an
//     activity ("marathon"); then a name of all kinds of the thing, or of the kind most eaten,
//     before one kind ("Oranges, raw, all commercial varieties" before "Oranges, raw, navels").
//  6. Fewer words besides the query's (a reference to another list, "(Taylor Code 360)", is
//     none), then more plain words, then shorter names; the rest keeps tree order.
//
// Close matches: when the word search finds little, a search that forgives one typo in a word
// of five letters or more, accents, words run together, the other spellings of a set and
// cooked foods for a way of cooking finds what was meant; when no name holds every word whole,
// the names that hold all but one.
// Names are compared folded: lower case, without accents.

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <array>

// The word lists of the ranking, from searchwords.txt.
struct SearchWords
{
    QHash<QByteArray, QList<QByteArray>> same; // a word -> the other words of its sets
    QSet<QByteArray> plain;
    QSet<QByteArray> processed;
    QSet<QByteArray> lesserParts; // matched as a whole part of a name
    QSet<QByteArray> notForms;    // "whole grain": two words, the first no form there
    QSet<QByteArray> allKinds;
    QSet<QByteArray> classes;
    QSet<QByteArray> fillers;
    QHash<QByteArray, QList<QByteArray>> waysOfCooking; // a way -> those alike
    QSet<QByteArray> loweredGroups;
    QSet<QByteArray> groupStopWords;

    static SearchWords parse(const QByteArray &text);
    static const SearchWords &instance(); // the lists built into the program
};

// The words of a query as the word search splits them: at any white space.
QStringList splitSearchWords(const QString &query);
// The length of a query's longest word, a leading "-" not counted; the word search needs one of
// kShortestSearchWord letters or more.
inline constexpr qsizetype kShortestSearchWord = 3;
qsizetype longestSearchWord(const QString &query);

// Lower case without accents: ASCII where the text has a plain form, UTF-8 beyond.
QByteArray foldText(const QString &text);
// The same for a Latin-1 name, into out (replaced).
void foldLatin1(const char *text, qsizetype length, QByteArray *out);
// The queries that look for the other forms of a query's words: each word in turn replaced by
// its singular or plural ("blueberry" and "blueberries"), by another word of its sets, or a
// way of cooking by "cooked".
QStringList otherFormQueries(const QString &query, const SearchWords &lists = SearchWords::instance());
// The query without each of its words in turn (words left out with "-" stay), as long as the
// rest can be searched; none for a query of one word.
QStringList queriesWithoutAWord(const QString &query);

// What a profile does: its favourites and how much it uses each item (see DiaryDB's usage).
struct SearchHistory
{
    QSet<int> favourites;
    QHash<int, double> byId;
    QHash<QString, double> byName; // exercises: the diary keeps their names only
};

// One match as the ranking sees it.
struct RankCandidate
{
    QByteArrayView folded;   // the name
    QByteArrayView original; // and as written, in Latin-1 as far as it goes: capitals tell brands
    int group = 1;           // SearchRanker::groupScore of its top category
    bool favourite = false;
    double usage = 0.0;
};

class SearchRanker
{
public:
    // Lower keys come first; equal keys keep the order of the candidates.
    using Key = std::array<qint32, 17>;

    // tolerant: words also match words one typo away, as close matches do.
    explicit SearchRanker(const QString &query, bool tolerant = false,
                          const SearchWords &lists = SearchWords::instance());

    Key key(const RankCandidate &candidate) const;
    // Whether a key is of a name whose thing is exactly the query.
    static bool isExactThing(const Key &key) { return key[2] == 0 && key[3] == 0 && key[4] == 0; }
    // How many words of the query a name does not hold as words of its own; of those, how many
    // do not even begin one of its words (a word being typed, "apple ra", begins "raw"); and of
    // those, how many it does not hold at all, not even inside a word.
    static int missingWords(const Key &key) { return key[2] / 4096; }
    static int unbegunWords(const Key &key) { return key[2] / 64 % 64; }
    static int absentWords(const Key &key) { return key[2] % 64; }
    // Rule 4 for a top category's folded name: 0 named by the query, 2 lowered, else 1.
    int groupScore(QByteArrayView foldedGroup) const;
    // Close matching, part by part along an item's path: the words of the query a folded text
    // holds closely (bit i for the i-th word; forgiving one typo in five letters or more, or in
    // another spelling of its set), with kExcludedWord when it holds an excluded one.
    static constexpr quint64 kExcludedWord = quint64(1) << 63;
    quint64 closeWords(QByteArrayView folded) const;
    // Whether the words of an item's path, or-ed, match: all of the query's but at most missing
    // (one word always remains), none excluded.
    bool matchesClosely(quint64 words, int missing = 0) const;

private:
    struct Word
    {
        QByteArray text;
        QList<QByteArray> same;
        bool wayOfCooking = false;
        bool form = false;       // a way of cooking, a plain or a processed form
        QList<QByteArray> alike; // ways of cooking
    };
    enum Match { kNone, kSame, kAlike, kLoose };
    // How a word of the query matches a word of a name: as itself (its plural, another word of
    // its sets), when tolerant as a way of cooking alike ("roasted" for "baked") or loosely (one
    // typo away, "cooked" for a way of cooking), or not.
    int matchOf(const Word &word, QByteArrayView token) const;
    bool sameWord(const Word &word, QByteArrayView token) const;
    // "other than", "without", "non", "no" before a word, unless the query says it too.
    bool negates(QByteArrayView token) const;
    bool occursClosely(const Word &word, QByteArrayView folded) const;

    const SearchWords &_lists;
    QList<Word> _words;
    QList<QByteArray> _excluded;
    bool _tolerant;
    bool _namesForm = false; // a word of the query is a plain or a processed form
};
