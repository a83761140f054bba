#pragma once

// The program's endpoints: publish, meal plan, usage metrics, the reference-database feed and
// its file. Each handler reads the request, asks the account store who is asking, calls a store
// and renders the reply; the database work runs on the server's thread pool. Protocol errors are
// answered with status 200 and the error in the XML (the program reads the body); a wrong method
// is 405, an unknown product 404.
//
// Nothing logged holds a password hash: the query is never logged.

#include <QString>

class QHttpServer;
class QThreadPool;
class ServerDB;

class ProtocolRoutes
{
public:
    struct Options
    {
        QString dataDir;                      // DATA: updates/ holds the published reference database
        bool storeMetrics = true;             // off: metrics are answered but not kept
        qint64 maxDocument = 8 * 1024 * 1024; // decoded publish or metrics document
    };

    ProtocolRoutes(ServerDB &db, QThreadPool *pool, const Options &options);

    void install(QHttpServer &server);

private:
    ServerDB &_db;
    QThreadPool *_pool;
    Options _options;
};
