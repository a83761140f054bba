// mkuserdb: builds the template user database from its SQL text.
//
//     mkuserdb SOURCE.sql OUTPUT.db
//
// The statements run in one transaction on a scratch file beside the output, and the finished
// file replaces the output in one step, so a failed build never leaves a half-made template
// where the program would copy it from.

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void fail(const QString &message)
{
    std::fprintf(stderr, "mkuserdb: %s\n", qPrintable(message));
}

// Splits the script at semicolons outside quotes, dropping "--" comments. Enough for the
// template, which holds no triggers or other statements with inner semicolons.
QStringList splitStatements(const QString &script)
{
    QStringList statements;
    QString current;
    QChar quote;
    for (qsizetype i = 0; i < script.size(); ++i) {
        const QChar c = script.at(i);
        if (!quote.isNull()) {
            current += c;
            if (c == quote)
                quote = QChar();
            continue;
        }
        if (c == u'-' && i + 1 < script.size() && script.at(i + 1) == u'-') {
            while (i < script.size() && script.at(i) != u'\n')
                ++i;
            current += u'\n';
            continue;
        }
        if (c == u'\'' || c == u'"') {
            quote = c;
            current += c;
        } else if (c == u';') {
            if (!current.trimmed().isEmpty())
                statements.append(current.trimmed());
            current.clear();
        } else {
            current += c;
        }
    }
    if (!current.trimmed().isEmpty())
        statements.append(current.trimmed());
    return statements;
}

bool build(const QStringList &statements, const QString &databasePath)
{
    const QString connection = u"mkuserdb"_s;
    bool ok = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, connection);
        db.setDatabaseName(databasePath);
        if (!db.open()) {
            fail(u"cannot create %1: %2"_s.arg(databasePath, db.lastError().text()));
            ok = false;
        } else {
            db.transaction();
            for (const QString &statement : statements) {
                QSqlQuery query(db);
                if (!query.exec(statement)) {
                    fail(u"%1\nin: %2"_s.arg(query.lastError().text(), statement));
                    ok = false;
                    break;
                }
            }
            if (ok && !db.commit()) {
                fail(u"cannot commit: %1"_s.arg(db.lastError().text()));
                ok = false;
            }
            db.close();
        }
    }
    QSqlDatabase::removeDatabase(connection);
    return ok;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 3) {
        fail(u"usage: mkuserdb SOURCE.sql OUTPUT.db"_s);
        return 2;
    }
    const QString &sourcePath = args.at(1);
    const QString &outputPath = args.at(2);

    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly)) {
        fail(u"cannot read %1: %2"_s.arg(sourcePath, source.errorString()));
        return 1;
    }
    const QStringList statements = splitStatements(QString::fromUtf8(source.readAll()));
    if (statements.isEmpty()) {
        fail(u"no statements in %1"_s.arg(sourcePath));
        return 1;
    }

    const QString outputFolder = QFileInfo(outputPath).absolutePath();
    QTemporaryDir scratch(outputFolder + u"/mkuserdb-XXXXXX"_s);
    if (!scratch.isValid()) {
        fail(u"cannot make a scratch folder in %1"_s.arg(outputFolder));
        return 1;
    }
    const QString scratchPath = scratch.filePath(u"userdata.db"_s);
    if (!build(statements, scratchPath))
        return 1;

    QFile built(scratchPath);
    if (!built.open(QIODevice::ReadOnly)) {
        fail(u"cannot read back %1"_s.arg(scratchPath));
        return 1;
    }
    QSaveFile output(outputPath);
    if (!output.open(QIODevice::WriteOnly) || output.write(built.readAll()) != built.size() ||
        !output.commit()) {
        fail(u"cannot write %1: %2"_s.arg(outputPath, output.errorString()));
        return 1;
    }
    return 0;
}
