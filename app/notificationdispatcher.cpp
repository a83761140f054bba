#include "app/notificationdispatcher.h"

NotificationDispatcher *NotificationDispatcher::instance()
{
    static NotificationDispatcher dispatcher;
    return &dispatcher;
}
