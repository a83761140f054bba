#include "server/diaryupdate.h"

int DiaryUpdate::itemCount() const
{
    qsizetype count = 0;
    for (const PublishedDay &day : days)
        count += day.foods.size() + day.exercises.size();
    return int(count);
}
