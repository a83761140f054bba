#pragma once

// Change tracking per synchronisation device. TEMP triggers, made anew on every start, mark each
// insert, update and delete of a tracked table in its sync table, once per device: state 1 for a
// new or changed row, 2 for a deleted one, with the day of the change. Consumers read the marks
// and reset them. Triggers live only in the connection that made them, so they always match the
// device and table lists of the start.

#include <QList>
#include <QPair>
#include <QString>

enum class SyncTriggerForm { Insert = 0, Update = 1 };

// Creates the triggers for every tracked table and every device. False only when the device or
// table list cannot be read; a trigger that SQLite refuses is left out.
bool installSyncTriggers();

// Builds and runs one trigger statement named lmtmp_ and the counter in four digits; the counter
// grows by one. With userId 0 or more only that profile's rows are tracked for these devices.
// True when SQLite accepted the statement.
bool createSyncTrigger(int &counter, const QString &sourceTable, const QString &syncTable,
                       const QString &fields, const QList<int> &devices, const QString &event,
                       const QString &rowReference, int state, SyncTriggerForm form, int userId);

// The id of the device with this name; -1 when there is none. The name is put into the statement
// unescaped, between double quotes.
int deviceId(const QString &name);

// Every device with its name, as the devices table lists them.
QList<QPair<int, QString>> syncDevices();
