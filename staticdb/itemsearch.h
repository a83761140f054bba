#pragma once

// The search both faces show: the word search over the reference items and the profile's own
// (and the shared) custom items, ranked (searchranking.h) or in tree order, with close matches
// when the word search finds little. It leaves the word search's flags on both databases, so a
// tree drawn from them afterwards shows the same matches; words too short to search reset them.

#include "staticdb/searchranking.h"

#include <QDate>
#include <QList>
#include <QString>

class DynamicDB;
class IndexedDB;

struct FoundItem
{
    int id = -1;
    QString name;
    bool custom = false;
    bool close = false; // a close match, not one of the word search
};

struct ItemSearchResult
{
    QList<FoundItem> items; // best first (or in tree order), cut to the limit
    qsizetype exact = 0;    // matches of the word search in all
    // Of those, names with every word as a word of their own or the beginning of one (ranked
    // searches; else all): none when "latte" finds only platters.
    qsizetype begun = 0;
    qsizetype close = 0;   // close matches in all
    bool searched = false; // the longest word was long enough to search

    // What to tell the reader about close matches, or about matches that only hold the words
    // inside others; empty when there is nothing to say.
    QString closeMatchNote(const QString &query) const;
};

enum class SearchOrder { Ranked, Tree };

// Below this many matches of the word search, close matches are looked for too.
inline constexpr qsizetype kFewMatches = 3;

// custom may be null: the reference items alone.
ItemSearchResult searchItems(IndexedDB &reference, DynamicDB *custom, const QString &query,
                             const SearchHistory &history, qsizetype limit,
                             SearchOrder order = SearchOrder::Ranked);

// Before there are words to search: the profile's favourites, then the items it logs most (the
// weights of its history), at most limit. Empty for a profile without either.
ItemSearchResult usualItems(IndexedDB &reference, DynamicDB *custom, const SearchHistory &history,
                            qsizetype limit);

// The favourites and use of a profile's foods (or exercises) as the ranking weighs them.
SearchHistory loadSearchHistory(int userId, bool exercises, const QDate &today = QDate::currentDate());

// What one of an item brings, in stored calories: a food's preferred serving (the food database
// must be open), an exercise's hour at a body weight.
struct ItemEnergy
{
    QString per; // "1 medium (3\" dia)", "100 g", "hour"
    double calories = 0.0;
    bool known = false;
};
ItemEnergy foodEnergy(int foodId);
ItemEnergy exerciseEnergy(float burnRate, double weightKg);
// "95 cals per 1 medium (3" dia)" in the display units; empty when unknown.
QString describeEnergy(const ItemEnergy &energy);
