#pragma once

// The household's web pages: server-rendered HTML that works without JavaScript. addWebRoutes
// registers every page path on a server (GET and POST on one rule each; other methods get 405):
//   /  /login  /logout  /day/yyyy-MM-dd  /calendar[/yyyy-MM]  /checkins  /plan  /sharing  /targets
//   /stats  /static/tarnwell.css  /static/tarnwell.svg
// A member viewing someone who shared with them adds ?member=NAME. Pages that touch the store are
// made on the context's pool (through ServerListener::respond); the routes copy what they need out
// of the request first.
//
// Sessions are rows of the sessions table (the cookie's token is stored only as its SHA-256); every
// form carries the session's CSRF token and a POST without it is refused with 403 before anything is
// read or written. A page about a member the viewer may not see answers 404, as an unknown one does.
// The cookies are Secure when the request's socket is an encrypted QSslSocket.

#include <QDate>
#include <QString>

#include <functional>

class QHttpServer;
class QThreadPool;
class ServerDB;

struct WebContext
{
    ServerDB *db = nullptr;      // the household's store; must outlive the server
    QThreadPool *pool = nullptr; // where pages that read or write the store are made; must outlive it
    // The uncompressed reference database (static.db) the meal plan editor searches; reopened when
    // the file changes. Empty or unreadable: the editor says food search is unavailable.
    QString referenceDb;
    // Searched while referenceDb does not exist: the database the programs were built with.
    QString bundledReferenceDb;
    // The household's today (the plan editor's week, the calendar's default month); null: the local
    // date. Called on the pool's threads.
    std::function<QDate()> today;
    int sessionDays = 30; // how long a login lasts
};

// Registers the pages on server. Call it after the program's own endpoints are routed: the pages'
// rules match only their own paths. The context is copied.
void addWebRoutes(QHttpServer &server, const WebContext &context);
