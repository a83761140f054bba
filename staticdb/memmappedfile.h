#pragma once

// A file mapped read-only into memory as a whole. The platform part opens and maps it; the bytes
// stay valid for the object's lifetime.

#include <QString>

#include <memory>

class MemMappedFilePrivate;

class MemMappedFile
{
public:
    explicit MemMappedFile(const QString &path);
    ~MemMappedFile();
    MemMappedFile(const MemMappedFile &) = delete;
    MemMappedFile &operator=(const MemMappedFile &) = delete;

    bool isValid() const;
    const uchar *base() const; // asserts a mapped file
    qint64 size() const;

private:
    std::unique_ptr<MemMappedFilePrivate> _d;
};
