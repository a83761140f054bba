// The ranking of a search from arbitrary text: the first line is the query, each line after it
// the name of a match, as written (Latin-1) and as typed for one's own items (UTF-8). Input that
// begins with "[" holds word lists of its own first, up to a line "--", to rank with instead of
// the built-in ones.

#include "staticdb/searchranking.h"

#include <QByteArray>
#include <QList>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    SearchWords own;
    const SearchWords *lists = &SearchWords::instance();
    if (input.startsWith('[')) {
        const qsizetype end = input.indexOf("\n--\n");
        own = SearchWords::parse(input.first(end < 0 ? input.size() : end));
        lists = &own;
        input = end < 0 ? QByteArray() : input.sliced(end + 4);
    }
    const QList<QByteArray> lines = input.split('\n');
    const QString query = QString::fromUtf8(lines.constFirst());
    (void)otherFormQueries(query, *lists);
    (void)longestSearchWord(query);
    const SearchRanker strict(query, false, *lists);
    const SearchRanker tolerant(query, true, *lists);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        QByteArray latin1Folded;
        foldLatin1(lines.at(i).constData(), lines.at(i).size(), &latin1Folded);
        const QByteArray utf8Folded = foldText(QString::fromUtf8(lines.at(i)));
        const QByteArray *const forms[] = {&latin1Folded, &utf8Folded};
        for (const QByteArray *folded : forms) {
            RankCandidate candidate;
            candidate.folded = *folded;
            candidate.original = lines.at(i);
            candidate.group = int(i % 3);
            candidate.favourite = i % 2;
            candidate.usage = double(i);
            for (const SearchRanker *ranker : {&strict, &tolerant}) {
                const SearchRanker::Key key = ranker->key(candidate);
                (void)SearchRanker::isExactThing(key);
                (void)ranker->groupScore(*folded);
                const quint64 words = ranker->closeWords(*folded);
                (void)ranker->matchesClosely(words);
                (void)ranker->matchesClosely(words, 1);
            }
        }
    }
    return 0;
}
