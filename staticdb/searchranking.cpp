#include "staticdb/searchranking.h"

#include "common/lmassert.h"

#include <QFile>
#include <QVarLengthArray>

#include <algorithm>
#include <bit>
#include <cctype>
#include <limits>

namespace {

struct Token
{
    qsizetype begin;
    qsizetype end;
    int part;
};
using Tokens = QVarLengthArray<Token, 48>;

bool isWordByte(uchar c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c >= 0x80 || c == '\'';
}

// Words of a folded text, with the comma-separated part each lies in.
Tokens tokenize(QByteArrayView text)
{
    Tokens tokens;
    int part = 0;
    qsizetype begin = -1;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        const uchar c = i < text.size() ? uchar(text[i]) : ' ';
        if (isWordByte(c)) {
            if (begin < 0)
                begin = i;
            continue;
        }
        if (begin >= 0)
            tokens.append({begin, i, part});
        begin = -1;
        if (c == ',')
            ++part;
    }
    return tokens;
}

// Whether word is in text where a word of it begins ("2%" in "2% milkfat", "ra" in "raw"; not
// "latte" in "platter").
bool beginsAWord(QByteArrayView text, QByteArrayView word)
{
    for (qsizetype i = text.indexOf(word); i >= 0; i = text.indexOf(word, i + 1)) {
        if (i == 0 || !isWordByte(uchar(text[i - 1])))
            return true;
    }
    return false;
}

QByteArrayView tokenText(QByteArrayView text, const Token &t)
{
    return text.sliced(t.begin, t.end - t.begin);
}

// "apple" and "apples", "peach" and "peaches", "berry" and "berries".
bool samePlural(QByteArrayView a, QByteArrayView b)
{
    if (a == b)
        return true;
    const auto plural = [](QByteArrayView longer, QByteArrayView shorter) {
        if (shorter.isEmpty() || !longer.startsWith(shorter.first(shorter.size() - 1)))
            return false;
        const QByteArrayView tail = longer.sliced(shorter.size() - 1);
        const char last = shorter.back();
        return (tail.size() == 2 && tail[0] == last && tail[1] == 's') ||
               (tail.size() == 3 && tail[0] == last && tail.endsWith("es")) || (last == 'y' && tail == "ies");
    };
    return plural(a, b) || plural(b, a);
}

// At most one letter typed wrong, left out, added, or two letters swapped.
bool withinOneEdit(QByteArrayView a, QByteArrayView b)
{
    if (a.size() > b.size())
        std::swap(a, b);
    if (b.size() - a.size() > 1)
        return false;
    qsizetype i = 0;
    while (i < a.size() && a[i] == b[i])
        ++i;
    if (i == a.size())
        return true;
    if (a.size() == b.size()) {
        if (a.sliced(i + 1) == b.sliced(i + 1))
            return true;
        return i + 1 < a.size() && a[i] == b[i + 1] && a[i + 1] == b[i] && a.sliced(i + 2) == b.sliced(i + 2);
    }
    return a.sliced(i) == b.sliced(i + 1);
}

// A word one typo away from a word of a name, or, from six letters, from its beginning
// ("bannana", "bananas"); a shorter word would find too much ("latte" in "platter").
bool closeToToken(QByteArrayView word, QByteArrayView token)
{
    if (withinOneEdit(word, token))
        return true;
    if (word.size() < 6)
        return false;
    for (qsizetype k = word.size() - 1; k <= word.size() + 1; ++k) {
        if (k < token.size() && withinOneEdit(word, token.first(k)))
            return true;
    }
    return false;
}

// Folded forms of the Latin-1 characters.
const std::array<QByteArray, 256> &latin1Folds()
{
    static const std::array<QByteArray, 256> table = [] {
        std::array<QByteArray, 256> t;
        for (int c = 0; c < 256; ++c)
            t[size_t(c)] = foldText(QString(QChar(c)));
        return t;
    }();
    return table;
}

bool isUpper(uchar c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
}

bool isLower(uchar c)
{
    return (c >= 'a' && c <= 'z') || (c >= 0xDF && c != 0xF7);
}

// A word in capitals ("McDONALD'S", "QUAKER") in the first parts of a name, as brands are, that
// is not one of the query's words (named(folded word)).
template <typename Named> bool brandIn(QByteArrayView original, int parts, const Named &named)
{
    int part = 0;
    int upper = 0;
    int lower = 0;
    qsizetype begin = 0;
    for (qsizetype i = 0; i <= original.size() && part < parts; ++i) {
        const uchar c = i < original.size() ? uchar(original[i]) : ' ';
        if (isUpper(c) || isLower(c) || c == '\'') {
            upper += isUpper(c);
            lower += isLower(c);
            continue;
        }
        if (upper >= 3 && upper * 4 >= (upper + lower) * 3 &&
            !named(original.sliced(begin, i - begin).toByteArray().toLower()))
            return true;
        upper = lower = 0;
        begin = i + 1;
        part += c == ',';
    }
    return false;
}

// Whether a part of a name, spaces aside, is on one of the lists: looked up without a copy, as
// the ranking asks it of every part of every match.
bool listed(const QSet<QByteArray> &list, QByteArrayView part)
{
    part = part.trimmed();
    return list.contains(QByteArray::fromRawData(part.data(), part.size()));
}

// Each comma-separated part of a text in turn, as visit(from, end, index) of it, until visit
// returns true.
template <typename Visit> void eachPart(QByteArrayView text, const Visit &visit)
{
    for (qsizetype from = 0, index = 0; from <= text.size(); ++index) {
        const qsizetype comma = text.indexOf(',', from);
        const qsizetype end = comma < 0 ? text.size() : comma;
        if (visit(from, end, int(index)))
            return;
        from = end + 1;
    }
}

// The name without the filler part that begins at a comma ("Chicken, broilers or fryers,
// breast" reads "Chicken, breast"); empty when the part there is none.
QByteArray withoutFiller(QByteArrayView name, qsizetype comma, const QSet<QByteArray> &fillers)
{
    const qsizetype end = comma < 0 ? -1 : name.indexOf(',', comma + 1);
    if (end < 0 || !listed(fillers, name.sliced(comma + 1, end - comma - 1)))
        return QByteArray();
    return name.first(comma).toByteArray() + name.sliced(end).toByteArray();
}

} // namespace

SearchWords SearchWords::parse(const QByteArray &text)
{
    SearchWords lists;
    QByteArray section;
    for (QByteArray line : text.split('\n')) {
        if (const qsizetype hash = line.indexOf('#'); hash >= 0)
            line.truncate(hash);
        line = line.trimmed().toLower();
        if (line.isEmpty())
            continue;
        if (line.startsWith('[') && line.endsWith(']')) {
            section = line.mid(1, line.size() - 2);
            continue;
        }
        if (section == "same" || section == "ways of cooking") {
            auto &sets = section == "same" ? lists.same : lists.waysOfCooking;
            const QList<QByteArray> words = line.simplified().split(' ');
            for (const QByteArray &word : words) {
                QList<QByteArray> &others = sets[word];
                for (const QByteArray &other : words) {
                    if (other != word && !others.contains(other))
                        others.append(other);
                }
            }
        } else if (section == "plain") {
            lists.plain.insert(line);
        } else if (section == "processed" || section == "intense") {
            lists.processed.insert(line);
        } else if (section == "lesser parts") {
            lists.lesserParts.insert(line);
        } else if (section == "classes") {
            lists.classes.insert(line);
        } else if (section == "lowered groups") {
            lists.loweredGroups.insert(line);
        } else if (section == "all kinds") {
            lists.allKinds.insert(line);
        } else if (section == "fillers") {
            lists.fillers.insert(line);
        } else if (section == "not forms") {
            lists.notForms.insert(line.simplified());
        } else if (section == "group stop words") {
            lists.groupStopWords.insert(line);
        }
    }
    return lists;
}

const SearchWords &SearchWords::instance()
{
    static const SearchWords lists = [] {
        QFile file(QStringLiteral(":/tarnwell/searchwords.txt"));
        const bool opened = file.open(QIODevice::ReadOnly);
        LM_ASSERT(opened);
        return parse(file.readAll());
    }();
    return lists;
}

QStringList splitSearchWords(const QString &query)
{
    QStringList words;
    QString word;
    for (const QChar c : query + QLatin1Char(' ')) {
        if (!c.isSpace()) {
            word += c;
        } else if (!word.isEmpty()) {
            words.append(word);
            word.clear();
        }
    }
    return words;
}

qsizetype longestSearchWord(const QString &query)
{
    qsizetype longest = 0;
    for (const QString &word : splitSearchWords(query))
        longest = std::max(longest, word.startsWith(QLatin1Char('-')) ? word.size() - 1 : word.size());
    return longest;
}

QByteArray foldText(const QString &text)
{
    QString folded;
    folded.reserve(text.size());
    for (const QChar c : text.normalized(QString::NormalizationForm_KD)) {
        if (c.category() != QChar::Mark_NonSpacing)
            folded += c.toLower();
    }
    return folded.toUtf8();
}

void foldLatin1(const char *text, qsizetype length, QByteArray *out)
{
    // Byte for byte while every character folds to one; names are mostly ASCII.
    const auto &folds = latin1Folds();
    out->resize(length);
    char *folded = out->data();
    for (qsizetype i = 0; i < length; ++i) {
        const uchar c = uchar(text[i]);
        if (c < 0x80) {
            folded[i] = char(c >= 'A' && c <= 'Z' ? c + 0x20 : c);
        } else if (folds[c].size() == 1) {
            folded[i] = folds[c].front();
        } else {
            out->truncate(i);
            for (; i < length; ++i) {
                const uchar d = uchar(text[i]);
                if (d < 0x80)
                    out->append(char(d >= 'A' && d <= 'Z' ? d + 0x20 : d));
                else
                    out->append(folds[d]);
            }
            return;
        }
    }
}

QStringList otherFormQueries(const QString &query, const SearchWords &lists)
{
    const QStringList words = splitSearchWords(query);
    QStringList queries;
    for (qsizetype i = 0; i < words.size(); ++i) {
        const QString &word = words.at(i);
        if (word.startsWith(QLatin1Char('-')))
            continue;
        const QString lower = word.toLower();
        QStringList forms;
        if (lower.endsWith(QLatin1Char('y')))
            forms.append(lower.chopped(1) + QStringLiteral("ies"));
        if (lower.endsWith(QLatin1String("ies")))
            forms.append(lower.chopped(3) + QLatin1Char('y'));
        else if (lower.endsWith(QLatin1String("es")))
            forms.append(lower.chopped(2));
        else if (lower.endsWith(QLatin1Char('s')) && !lower.endsWith(QLatin1String("ss")))
            forms.append(lower.chopped(1));
        const QByteArray folded = foldText(word);
        for (auto it = lists.same.cbegin(); it != lists.same.cend(); ++it) {
            if (samePlural(it.key(), folded)) {
                for (const QByteArray &other : it.value())
                    forms.append(QString::fromUtf8(other));
            }
        }
        if (lists.waysOfCooking.contains(folded))
            forms.append(QStringLiteral("cooked"));
        for (const QString &form : std::as_const(forms)) {
            if (form.size() < 3 || form == lower)
                continue;
            QStringList replaced = words;
            replaced[i] = form;
            const QString formQuery = replaced.join(QLatin1Char(' '));
            if (!queries.contains(formQuery))
                queries.append(formQuery);
        }
    }
    return queries;
}

QStringList queriesWithoutAWord(const QString &query)
{
    const QStringList words = splitSearchWords(query);
    const auto sought = std::count_if(words.cbegin(), words.cend(),
                                      [](const QString &w) { return !w.startsWith(QLatin1Char('-')); });
    QStringList queries;
    for (qsizetype i = 0; sought > 1 && i < words.size(); ++i) {
        if (words.at(i).startsWith(QLatin1Char('-')))
            continue;
        QStringList others = words;
        others.removeAt(i);
        const QString fewer = others.join(QLatin1Char(' '));
        if (longestSearchWord(fewer) >= kShortestSearchWord)
            queries.append(fewer);
    }
    return queries;
}

SearchRanker::SearchRanker(const QString &query, bool tolerant, const SearchWords &lists)
    : _lists(lists)
    , _tolerant(tolerant)
{
    for (const QString &word : splitSearchWords(query)) {
        if (word.startsWith(QLatin1Char('-'))) {
            if (word.size() > 1)
                _excluded.append(foldText(word.mid(1)));
            continue;
        }
        // Each word has a bit of closeWords(); the word search itself takes far fewer.
        if (_words.size() == 62)
            break;
        Word w;
        w.text = foldText(word);
        if (const auto way = lists.waysOfCooking.constFind(w.text); way != lists.waysOfCooking.cend()) {
            w.wayOfCooking = true;
            w.alike = *way;
        }
        // The sets name words in the singular and the plural forms they are typed in.
        for (auto it = lists.same.cbegin(); it != lists.same.cend(); ++it) {
            if (samePlural(it.key(), w.text))
                w.same += it.value();
        }
        const bool namesForm = lists.plain.contains(w.text) || lists.processed.contains(w.text);
        w.form = w.wayOfCooking || namesForm;
        _namesForm = _namesForm || namesForm;
        _words.append(w);
    }
}

int SearchRanker::matchOf(const Word &word, QByteArrayView token) const
{
    if (samePlural(word.text, token))
        return kSame;
    for (const QByteArray &other : word.same) {
        if (samePlural(other, token))
            return kSame;
    }
    if (!_tolerant)
        return kNone;
    if (word.wayOfCooking && word.alike.contains(token))
        return kAlike;
    if (word.wayOfCooking && token == "cooked")
        return kLoose;
    return word.text.size() >= 5 && closeToToken(word.text, token) ? kLoose : kNone;
}

bool SearchRanker::sameWord(const Word &word, QByteArrayView token) const
{
    return matchOf(word, token) != kNone;
}

int SearchRanker::groupScore(QByteArrayView foldedGroup) const
{
    const Tokens tokens = tokenize(foldedGroup);
    for (const Word &word : _words) {
        for (const Token &t : tokens) {
            const QByteArrayView text = tokenText(foldedGroup, t);
            if (!listed(_lists.groupStopWords, text) && sameWord(word, text))
                return 0;
        }
    }
    return listed(_lists.loweredGroups, foldedGroup) ? 2 : 1;
}

SearchRanker::Key SearchRanker::key(const RankCandidate &c) const
{
    QByteArrayView name = c.folded;
    const qsizetype comma = name.indexOf(',');
    const bool classFirst = comma > 0 && listed(_lists.classes, name.first(comma));
    const int thing = classFirst ? 1 : 0; // the part the thing begins with
    int thingParts = thing + 1;           // the parts up to the thing's end
    // A part right after the thing that nobody types is passed over, and the part after it
    // belongs to the thing.
    const QByteArray shortened =
        withoutFiller(name, classFirst ? name.indexOf(',', comma + 1) : comma, _lists.fillers);
    if (!shortened.isEmpty()) {
        name = shortened;
        ++thingParts;
    }
    const Tokens tokens = tokenize(name);

    // Where each word of the query is: a whole word, spelled right and in the thing if it can be.
    // A word the name says it is without ("other than cola", "non-soy") is not there.
    QVarLengthArray<bool, 48> negated(tokens.size(), false);
    for (qsizetype i = 1; i < tokens.size(); ++i)
        negated[i] = negates(tokenText(name, tokens[i - 1]));
    QVarLengthArray<qsizetype, 8> at(_words.size(), -1);
    QVarLengthArray<int, 8> how(_words.size(), kNone);
    for (qsizetype w = 0; w < _words.size(); ++w) {
        int best = std::numeric_limits<int>::max();
        for (qsizetype i = 0; i < tokens.size() && best > 0; ++i) {
            if (negated[i])
                continue;
            const int match = matchOf(_words.at(w), tokenText(name, tokens[i]));
            const int worse =
                (match == kLoose ? 4 : 0) + (tokens[i].part < thingParts ? 0 : 2) + (match == kAlike ? 1 : 0);
            if (match != kNone && worse < best) {
                best = worse;
                at[w] = i;
                how[w] = match;
            }
        }
    }
    // Two words typed apart that a name writes as one: "soy milk" is "Soymilk".
    for (qsizetype w = 0; w + 1 < _words.size(); ++w) {
        if (at[w] >= 0 && at[w + 1] >= 0)
            continue;
        const QByteArray joined = _words.at(w).text + _words.at(w + 1).text;
        for (qsizetype i = 0; i < tokens.size(); ++i) {
            if (samePlural(joined, tokenText(name, tokens[i]))) {
                at[w] = at[w + 1] = i;
                how[w] = how[w + 1] = kSame;
                break;
            }
        }
    }

    // And one word typed for two of a name's: "cornflakes" is "Corn Flakes".
    QVarLengthArray<qsizetype, 8> second(_words.size(), -1);
    for (qsizetype w = 0; w < _words.size(); ++w) {
        const QByteArray &word = _words.at(w).text;
        for (qsizetype i = 0; at[w] < 0 && i + 1 < tokens.size(); ++i) {
            const QByteArrayView first = tokenText(name, tokens[i]);
            if (word.size() > first.size() && word.startsWith(first) &&
                samePlural(QByteArrayView(word).sliced(first.size()), tokenText(name, tokens[i + 1]))) {
                at[w] = i;
                second[w] = i + 1;
                how[w] = kSame;
            }
        }
    }

    QVarLengthArray<int, 48> covers(tokens.size(), 0); // the query's words each word of the name is
    QVarLengthArray<bool, 48> used(tokens.size(), false);
    int missingWhole = 0;
    int unbegun = 0;          // of those, not the beginning of a word either ("apple ra" is begun)
    int absent = 0;           // nor inside one
    bool lastMissing = false; // the last word typed is more often the thing: "black coffee"
    int loose = 0;
    int alike = 0;
    int outside = 0;
    int outsideThing = 0; // forms and ways of cooking aside: names give them after the thing
    for (qsizetype w = 0; w < _words.size(); ++w) {
        int part;
        if (at[w] >= 0) {
            ++covers[at[w]];
            used[at[w]] = true;
            if (second[w] >= 0)
                used[second[w]] = true;
            loose += how[w] == kLoose;
            alike += how[w] == kAlike;
            part = tokens[at[w]].part;
        } else {
            ++missingWhole;
            lastMissing = lastMissing || w == _words.size() - 1;
            const qsizetype inside = name.indexOf(_words.at(w).text);
            absent += inside < 0;
            unbegun += !beginsAWord(name, _words.at(w).text);
            part = inside < 0 ? thingParts : int(name.first(inside).count(','));
        }
        outside += part >= thingParts;
        outsideThing += part >= thingParts && !_words.at(w).form;
    }
    // The thing is exactly the query: every word in the parts, and nothing else there. Of a name
    // without some words (they weigh first), the words it has.
    const auto exactParts = [&](int first, int last) {
        qsizetype inParts = 0;
        qsizetype usedInParts = 0;
        qsizetype words = 0;
        for (qsizetype i = 0; i < tokens.size(); ++i) {
            if (tokens[i].part >= first && tokens[i].part <= last) {
                ++inParts;
                usedInParts += used[i];
                words += covers[i];
            }
        }
        return words > 0 && words == _words.size() - missingWhole && usedInParts == inParts;
    };
    const bool exact = !_words.isEmpty() && (exactParts(0, 0) || exactParts(thing, thing) ||
                                             exactParts(0, thing + 1) || exactParts(thing, thing + 1));

    // A plain word right after the thing names its main form ("Milk, whole"); later, one form
    // among others ("Milk, dry, whole").
    int plain = 0;
    int plainForm = 2;
    int processed = 0;
    int extra = 0; // the class ("Beverages") is not a word besides the query's
    for (qsizetype i = 0; i < tokens.size(); ++i) {
        // A reference to another list ("(Taylor Codes 280, 295)") says nothing of the item.
        if (tokenText(name, tokens[i]) == "taylor" && i + 1 < tokens.size() &&
            tokenText(name, tokens[i + 1]).startsWith("code")) {
            for (++i; i + 1 < tokens.size() && std::isdigit(uchar(tokenText(name, tokens[i + 1]).front()));)
                ++i;
            continue;
        }
        if (used[i])
            continue;
        extra += tokens[i].part >= thing;
        // A form the query names itself ("apple raw", "dried apricots") settles the form.
        if (_namesForm)
            continue;
        const QByteArrayView text = tokenText(name, tokens[i]);
        const bool isPlain = listed(_lists.plain, text);
        const bool isProcessed = listed(_lists.processed, text);
        // A form's word with the next may be something else: "whole grain", "dry heat".
        if ((!isPlain && !isProcessed) ||
            (i + 1 < tokens.size() && _lists.notForms.contains(text.toByteArray() + ' ' +
                                                               tokenText(name, tokens[i + 1]).toByteArray())))
            continue;
        if (isPlain) {
            ++plain;
            plainForm = std::min(plainForm, tokens[i].part == thingParts ? 0 : 1);
        }
        processed += isProcessed;
    }
    // Parts few people mean ("giblets", "skin only") that the query does not name.
    int lesser = 0;
    eachPart(name, [&](qsizetype from, qsizetype end, int part) {
        lesser += listed(_lists.lesserParts, name.sliced(from, end - from)) &&
                  std::none_of(tokens.cbegin(), tokens.cend(),
                               [&](const Token &t) { return t.part == part && used[&t - tokens.cbegin()]; });
        return false;
    });
    // A name of all kinds of the thing ("Oranges, raw, all commercial varieties") stands for it
    // better than one of them.
    // What a part says in brackets is an example ("red or green (European type, such as ...)"),
    // unless it names the query: "all (gin, rum, vodka, whiskey)" is not all kinds of vodka.
    bool allKinds = false;
    eachPart(c.folded, [&](qsizetype from, qsizetype end, int) {
        QByteArrayView part = c.folded.sliced(from, end - from);
        if (const qsizetype bracket = part.indexOf('('); bracket > 0) {
            const qsizetype closing = c.folded.indexOf(')', from + bracket);
            const QByteArrayView example =
                c.folded.sliced(from + bracket, (closing < 0 ? c.folded.size() : closing) - from - bracket);
            if (std::any_of(_words.cbegin(), _words.cend(),
                            [&](const Word &w) { return example.contains(w.text); }))
                part = {};
            else
                part = part.first(bracket);
        }
        allKinds = listed(_lists.allKinds, part);
        return allKinds;
    });
    // A thing of more than the query's words is another thing: "Oat bran" for "oats cooked".
    const bool otherThing = std::any_of(tokens.cbegin(), tokens.cend(), [&](const Token &t) {
        return t.part == thing && !used[&t - tokens.cbegin()];
    });
    // Capitals the query names are the thing asked for, not a brand it did not ask for.
    const bool brand = brandIn(c.original, thingParts + 1, [this](const QByteArray &word) {
        return std::any_of(_words.cbegin(), _words.cend(),
                           [&](const Word &w) { return matchOf(w, word) == kSame; });
    });
    // A brand in a lowered group falls below the group's plain names.
    const int group = c.group == 0 ? brand : c.group == 2 ? 2 + brand : brand ? 2 : 1;
    // What the profile eats leads when the query names it, not a word on its side ("salt" is not
    // "Broccoli, boiled, with salt").
    const bool named = missingWhole == 0 && loose == 0 && outside < _words.size();
    const int tier = !named ? 2 : c.favourite ? 0 : c.usage > 0 ? 1 : 2;
    const qint32 usage =
        tier < 2 ? -qint32(std::min(c.usage, double(std::numeric_limits<qint32>::max() / 1000)) * 1000) : 0;
    return {tier,
            usage,
            (missingWhole * 64 + unbegun) * 64 + absent,
            loose,
            exact ? 0 : 1,
            lastMissing,
            group,
            outsideThing,
            otherThing,
            alike,
            lesser,
            plainForm,
            processed,
            !allKinds,
            extra,
            -plain,
            qint32(name.size())};
}

bool SearchRanker::occursClosely(const Word &word, QByteArrayView folded) const
{
    if (folded.contains(word.text))
        return true;
    for (const QByteArray &other : word.same) {
        if (folded.contains(other))
            return true;
    }
    if (word.text.size() < 5)
        return false;
    const Tokens tokens = tokenize(folded);
    if (std::any_of(tokens.cbegin(), tokens.cend(),
                    [&](const Token &t) { return closeToToken(word.text, tokenText(folded, t)); }))
        return true;
    // One word for two of the name's: "cornflakes" is "Corn Flakes", "icecream" "Ice cream".
    for (qsizetype i = 0; i + 1 < tokens.size(); ++i) {
        const QByteArrayView first = tokenText(folded, tokens[i]);
        if (word.text.startsWith(first) &&
            samePlural(word.text.sliced(first.size()), tokenText(folded, tokens[i + 1])))
            return true;
    }
    return false;
}

quint64 SearchRanker::closeWords(QByteArrayView folded) const
{
    quint64 words = 0;
    for (const QByteArray &excluded : _excluded) {
        if (folded.contains(excluded))
            return kExcludedWord;
    }
    for (qsizetype i = 0; i < _words.size(); ++i) {
        if (occursClosely(_words.at(i), folded))
            words |= quint64(1) << i;
    }
    return words;
}

bool SearchRanker::matchesClosely(quint64 words, int missing) const
{
    const quint64 all = (quint64(1) << _words.size()) - 1;
    return !_words.isEmpty() && !(words & kExcludedWord) &&
           std::popcount(words & all) + std::min<qsizetype>(missing, _words.size() - 1) >= _words.size();
}

bool SearchRanker::negates(QByteArrayView token) const
{
    static const QByteArrayView negations[] = {"than", "without", "non", "no"};
    return std::find(std::cbegin(negations), std::cend(negations), token) != std::cend(negations) &&
           std::none_of(_words.cbegin(), _words.cend(), [&](const Word &w) { return w.text == token; });
}
