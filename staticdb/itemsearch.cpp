#include "staticdb/itemsearch.h"

#include "db/diarydb.h"
#include "model/dbtypes.h"
#include "model/unitdescriptor.h"
#include "staticdb/dynamicdb.h"
#include "staticdb/fooddb.h"

#include <QCoreApplication>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

// Every item below a category in tree order, depth first with a stack of our own (a file decides
// how deep its categories nest). visit(entry, top, inherited): top is the category right below
// the start; inherited what words(entry) gave for the searchable categories above the item, or-ed.
template <typename Words, typename Visit>
void walkTree(const IndexedDB &db, quint32 start, quint8 on, const Words &words, const Visit &visit)
{
    struct Level
    {
        std::unique_ptr<BrowsableDBIterator> items;
        const IndexEntry *top;
        quint64 inherited;
    };
    std::vector<Level> levels;
    if (BrowsableDBIterator *first = db.children(start, on, 0))
        levels.push_back({std::unique_ptr<BrowsableDBIterator>(first), nullptr, 0});
    while (!levels.empty()) {
        Level &level = levels.back();
        const IndexEntry *e = level.items->next();
        if (!e) {
            levels.pop_back();
            continue;
        }
        const IndexEntry *top = level.top ? level.top : e;
        if (!db.isCategory(e)) {
            visit(e, top, level.inherited);
            continue;
        }
        const quint64 inherited = level.inherited | (db.flags(e) & FLAG_NOT_SEARCHED ? 0 : words(e));
        if (BrowsableDBIterator *children = db.children(e->id, on, 0))
            levels.push_back({std::unique_ptr<BrowsableDBIterator>(children), top, inherited});
    }
}

struct Candidate
{
    const IndexedDB *db;
    const IndexEntry *entry;
    bool custom;
    bool close;
    SearchRanker::Key key;
    qsizetype order;
};

// What a pass over the databases takes: the items the last word search showed, or with
// everything every item that matches closely. Items already seen are left out; those taken are
// added to seen. Close marks what the query's own word search did not find.
struct Pass
{
    const SearchRanker &ranker;
    const SearchHistory &history;
    bool close;
    bool everything;
    bool rank;
    int missing = 0; // words of the query a name may be without, when ranked
};

void collect(IndexedDB &reference, DynamicDB *custom, const Pass &pass, QSet<const IndexEntry *> *seen,
             std::vector<Candidate> *out)
{
    QByteArray folded;
    QHash<const IndexEntry *, int> groups;
    const auto visitor = [&](const IndexedDB &db, bool isCustom) {
        return [&, isCustom](const IndexEntry *e, const IndexEntry *top, quint64 inherited) {
            if (seen->contains(e))
                return;
            QString text;
            QByteArray original;
            if (isCustom) {
                text = db.nameText(e);
                folded = foldText(text);
                // No brands among one's own: capitals there are how the profile writes.
            } else {
                foldLatin1(db.namePointer(e), db.nameLength(e), &folded);
                original = QByteArray::fromRawData(db.namePointer(e), db.nameLength(e));
            }
            if (pass.everything &&
                !pass.ranker.matchesClosely(inherited | pass.ranker.closeWords(folded), pass.missing))
                return;
            Candidate c{&db, e, isCustom, pass.close, {}, qsizetype(out->size())};
            if (pass.rank) {
                RankCandidate r;
                r.folded = folded;
                r.original = original;
                if (isCustom) {
                    r.group = 1; // the profile's own: no group to weigh
                } else if (const auto group = groups.constFind(top); group != groups.cend()) {
                    r.group = *group;
                } else {
                    r.group = pass.ranker.groupScore(foldText(db.nameText(top)));
                    groups.insert(top, r.group);
                }
                r.favourite = pass.history.favourites.contains(int(e->id));
                r.usage = pass.history.byId.value(int(e->id));
                if (!pass.history.byName.isEmpty())
                    r.usage += pass.history.byName.value(isCustom ? text : db.nameText(e));
                c.key = pass.ranker.key(r);
                // Without a word, the others must be whole: not "tea" in "steaks".
                if (pass.missing > 0 && SearchRanker::missingWords(c.key) > pass.missing)
                    return;
            }
            seen->insert(e);
            out->push_back(c);
        };
    };
    const quint8 on = pass.everything ? 0 : FLAG_SHOWN;
    const auto words = [&](const IndexedDB &db) {
        return [&](const IndexEntry *category) {
            return pass.everything ? pass.ranker.closeWords(foldText(db.nameText(category))) : 0;
        };
    };
    walkTree(reference, reference.rootId(), on, words(reference), visitor(reference, false));
    for (const int root : {DynamicDB::rootIdOf(custom ? custom->userId() : -1), kSharedRootId}) {
        if (custom && custom->lookup(quint32(root), true))
            walkTree(*custom, quint32(root), on, words(*custom), visitor(*custom, true));
    }
}

// The best first (or all in their order), at most limit.
void keepBest(std::vector<Candidate> *candidates, qsizetype limit, bool rank)
{
    const auto better = [](const Candidate &a, const Candidate &b) {
        return a.key != b.key ? a.key < b.key : a.order < b.order;
    };
    const size_t keep = size_t(std::min<qsizetype>(limit, qsizetype(candidates->size())));
    if (rank)
        std::partial_sort(candidates->begin(), candidates->begin() + qsizetype(keep), candidates->end(),
                          better);
    candidates->resize(keep);
}

} // namespace

QString ItemSearchResult::closeMatchNote(const QString &query) const
{
    if (close == 0) {
        return exact > 0 && begun == 0
                   ? QCoreApplication::translate("ItemSearch", "No exact matches for \"%1\"").arg(query)
                   : QString();
    }
    if (exact == 0)
        return QCoreApplication::translate("ItemSearch", "No exact matches; showing close matches for \"%1\"")
            .arg(query);
    return QCoreApplication::translate("ItemSearch", "Also showing close matches for \"%1\"").arg(query);
}

ItemSearchResult searchItems(IndexedDB &reference, DynamicDB *custom, const QString &query,
                             const SearchHistory &history, qsizetype limit, SearchOrder order)
{
    ItemSearchResult result;
    result.searched = reference.search(query, false, 0);
    if (!result.searched) {
        reference.reset();
        if (custom)
            custom->reset();
        return result;
    }
    if (custom)
        custom->search(query, false, 0);
    const bool rank = order == SearchOrder::Ranked;
    const SearchRanker strict(query);
    const SearchRanker tolerant(query, true);
    std::vector<Candidate> found;
    QSet<const IndexEntry *> seen;
    collect(reference, custom, {strict, history, false, false, rank}, &seen, &found);
    result.exact = qsizetype(found.size());
    result.begun = !rank ? result.exact : std::count_if(found.cbegin(), found.cend(), [](const Candidate &c) {
        return SearchRanker::unbegunWords(c.key) == 0;
    });
    // The matches of other queries, found by the word search as quickly; its flags go back to
    // the query's own matches afterwards, for the tree drawn from them.
    bool strayed = false;
    const auto collectFor = [&](const QStringList &queries, int missing) {
        for (const QString &other : queries) {
            reference.search(other, false, 0);
            if (custom)
                custom->search(other, false, 0);
            collect(reference, custom, {tolerant, history, true, false, rank, missing}, &seen, &found);
            strayed = true;
        }
    };

    // Few names that are the thing asked for: the other forms of its words may name it
    // ("blueberry" finds "Blueberries, raw").
    const auto exactThings = std::count_if(
        found.cbegin(), found.cend(), [](const Candidate &c) { return SearchRanker::isExactThing(c.key); });
    if (rank && exactThings < kFewMatches)
        collectFor(otherFormQueries(query), 0);
    // Few matches at all: every item, forgiving a typo or an accent.
    if (result.exact < kFewMatches)
        collect(reference, custom, {tolerant, history, true, true, rank}, &seen, &found);
    // No name holds every word whole, and few hold them even inside other words: those that hold
    // all but one ("black coffee" is coffee, "iced tea" not "sliced steaks"), found by the word
    // search without each word in turn. A word being typed ("apple ra") is no whole word yet,
    // but inside many.
    const auto whole = std::count_if(found.cbegin(), found.cend(), [](const Candidate &c) {
        return SearchRanker::missingWords(c.key) == 0;
    });
    const auto inside = std::count_if(found.cbegin(), found.cend(), [](const Candidate &c) {
        return SearchRanker::absentWords(c.key) == 0;
    });
    if (rank && whole == 0 && inside < kFewMatches)
        collectFor(queriesWithoutAWord(query), 1);
    if (strayed) {
        reference.search(query, false, 0);
        if (custom)
            custom->search(query, false, 0);
    }
    result.close = qsizetype(found.size()) - result.exact;
    keepBest(&found, limit, rank);
    for (const Candidate &c : found)
        result.items.append({int(c.entry->id), c.db->nameText(c.entry), c.custom, c.close});
    return result;
}

ItemSearchResult usualItems(IndexedDB &reference, DynamicDB *custom, const SearchHistory &history,
                            qsizetype limit)
{
    ItemSearchResult result;
    if (history.favourites.isEmpty() && history.byId.isEmpty() && history.byName.isEmpty())
        return result;
    struct Usual
    {
        const IndexedDB *db;
        const IndexEntry *entry;
        bool custom;
        bool favourite;
        double usage;
    };
    std::vector<Usual> usual;
    const auto visitor = [&](const IndexedDB &db, bool isCustom) {
        return [&, isCustom](const IndexEntry *e, const IndexEntry *, quint64) {
            const bool favourite = history.favourites.contains(int(e->id));
            double usage = history.byId.value(int(e->id));
            if (!history.byName.isEmpty())
                usage += history.byName.value(db.nameText(e));
            if (favourite || usage > 0)
                usual.push_back({&db, e, isCustom, favourite, usage});
        };
    };
    const auto noWords = [](const IndexEntry *) { return quint64(0); };
    walkTree(reference, reference.rootId(), 0, noWords, visitor(reference, false));
    for (const int root : {DynamicDB::rootIdOf(custom ? custom->userId() : -1), kSharedRootId}) {
        if (custom && custom->lookup(quint32(root), true))
            walkTree(*custom, quint32(root), 0, noWords, visitor(*custom, true));
    }
    // Favourites first, then the most used; otherwise in tree order.
    std::stable_sort(usual.begin(), usual.end(), [](const Usual &a, const Usual &b) {
        return a.favourite != b.favourite ? a.favourite : a.usage > b.usage;
    });
    for (const Usual &u : usual) {
        if (result.items.size() >= limit)
            break;
        result.items.append({int(u.entry->id), u.db->nameText(u.entry), u.custom, false});
    }
    return result;
}

SearchHistory loadSearchHistory(int userId, bool exercises, const QDate &today)
{
    SearchHistory history;
    for (const int id : Favorites::list(userId, exercises ? Favorites::EXERCISES : Favorites::FOODS))
        history.favourites.insert(id);
    if (exercises)
        history.byName = DiaryDB().exerciseUsage(userId, today);
    else
        history.byId = DiaryDB().foodUsage(userId, today);
    return history;
}

ItemEnergy foodEnergy(int foodId)
{
    ItemEnergy energy;
    FoodDiaryItem item;
    item.changeFood(foodId);
    const QList<FoodServing> servings = item.getServings();
    const ServingChoice choice = preferredServing(servings);
    const auto serving = std::find_if(servings.cbegin(), servings.cend(),
                                      [&choice](const FoodServing &s) { return s.id == choice.servingId; });
    if (serving == servings.cend())
        return energy;
    item.setServing(choice.servingId);
    item.setSize(choice.size);
    energy.per = choice.size == 1.0f ? serving->name
                                     : QStringLiteral("%1 %2").arg(double(choice.size)).arg(serving->name);
    energy.calories = double(item.getNutrient(ENERGY));
    energy.known = isKnown(item.getNutrient(ENERGY));
    return energy;
}

ItemEnergy exerciseEnergy(float burnRate, double weightKg)
{
    ItemEnergy energy;
    energy.per = QCoreApplication::translate("ItemSearch", "hour");
    energy.calories = double(burnRate) * weightKg * 60.0;
    energy.known = weightKg > 0.0;
    return energy;
}

QString describeEnergy(const ItemEnergy &energy)
{
    if (!energy.known)
        return QString();
    return QCoreApplication::translate("ItemSearch", "%1 per %2")
        .arg(UnitRegistry::instance().getUnit(UNIT_ENERGY)->formatValueWithUnit(energy.calories), energy.per);
}
