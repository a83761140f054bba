#pragma once

// Readers of the documents the program posts: the diary update of a publish and the usage
// metrics. Both come from the network, so nothing in them is trusted: a DTD of any kind is
// refused before anything in it is used (no entity is ever expanded), elements nest at most
// kMaxDepth deep, attribute values are at most kMaxAttributeLength characters, dates are
// "yyyy-MM-dd" and numbers finite. Unknown elements and attributes are skipped.
//
// A refused document gives false, a short reason in *error and, when asked, the protocol error
// (BadDocument, or TooLarge past the item limit); *out is then left empty.

#include "server/diaryupdate.h"
#include "server/protocolerror.h"

#include <QByteArrayView>
#include <QDate>
#include <QList>
#include <QString>

inline constexpr int kMaxDepth = 16;
inline constexpr int kMaxAttributeLength = 16 * 1024;
inline constexpr int kMaxPublishItems = 2000;  // foods and exercises of one publish
inline constexpr int kMaxMetricsItems = 20000; // elements of one metrics document

// How a document is read. The plain XML the program writes goes through a reader made for it,
// several times faster than Qt's; everything else, and every refusal, through Qt's. QtOnly is
// for comparing the two.
enum class XmlReading { PlainFirst, QtOnly };

// <diaryupdate> with <diary>/<diaryday date>/<group meal>/<food|exercise>, <checkins>/<checkin>
// and <waters>/<water>. Unknown nutrient values (absent, or negative as the program writes
// them) are left unknown.
bool readDiaryUpdate(QByteArrayView xml, DiaryUpdate *out, QString *error, ProtocolError *code = nullptr,
                     XmlReading reading = XmlReading::PlainFirst);

// One line of the metrics document: how often something happened on a day.
struct MetricsCount
{
    enum Kind { Start, Checkin, FoodDiary };
    QDate date;
    Kind kind = Start;
    int count = 0;
};

// <metrics> with <login date count>, <checkin modified date trend> and <fooddiary modified date
// count>: starts are counted on their day, check-in and food diary changes on the day they
// were made (modified). Nothing that identifies a food or a weight is kept.
bool readMetricsUpdate(QByteArrayView xml, QList<MetricsCount> *out, QString *error,
                       ProtocolError *code = nullptr, XmlReading reading = XmlReading::PlainFirst);
