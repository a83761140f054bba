#include "staticdb/memmappedfile.h"

#include "common/lmassert.h"
#include "staticdb/staticdblog.h"

#include <QFile>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

class MemMappedFilePrivate
{
public:
    virtual ~MemMappedFilePrivate() = default;
    const uchar *base = nullptr;
    qint64 size = 0;
};

namespace {

class MemMappedFilePrivatePosix final : public MemMappedFilePrivate
{
public:
    explicit MemMappedFilePrivatePosix(const QString &path)
    {
        _fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
        qCDebug(lcStaticDb, "MemMappedFilePrivatePosix::open %s", _fd >= 0 ? "succeeded" : "failed");
        struct stat info;
        if (_fd < 0 || ::fstat(_fd, &info) != 0 || info.st_size <= 0)
            return;
        void *mapped = ::mmap(nullptr, size_t(info.st_size), PROT_READ, MAP_SHARED, _fd, 0);
        if (mapped == MAP_FAILED)
            return;
        base = static_cast<const uchar *>(mapped);
        size = info.st_size;
    }
    ~MemMappedFilePrivatePosix() override
    {
        if (base)
            ::munmap(const_cast<uchar *>(base), size_t(size));
        if (_fd >= 0)
            ::close(_fd);
    }

private:
    int _fd = -1;
};

} // namespace

MemMappedFile::MemMappedFile(const QString &path)
    : _d(std::make_unique<MemMappedFilePrivatePosix>(path))
{
    if (!_d->base)
        qCWarning(lcStaticDb, "MemMappedFile - error loading %s", qUtf8Printable(path));
}

MemMappedFile::~MemMappedFile()
{
    qCDebug(lcStaticDb, "MemMappedFile::~MemMappedFile()");
}

bool MemMappedFile::isValid() const
{
    return _d->base != nullptr;
}

const uchar *MemMappedFile::base() const
{
    LM_ASSERT(_d->base);
    return _d->base;
}

qint64 MemMappedFile::size() const
{
    return _d->size;
}
