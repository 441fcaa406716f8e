#include <kvcore/streams/Crypting.h>

namespace
{

// The compiler makes vector code of this loop.
void Complement(char * data, int size)
{
    for (int i = 0; i < size; ++i)
    {
        data[i] = static_cast<char>(~data[i]);
    }
}

} // namespace

CryptingOutputStream::CryptingOutputStream(OutputStream & target) : OutputStream(&target) {}

CryptingOutputStream::~CryptingOutputStream() noexcept(false) {}

void CryptingOutputStream::Write(char const * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    struct Complemented
    {
        char * data;
        int size;

        Complemented(char const * callers, int count) : data(const_cast<char *>(callers)), size(count)
        {
            Complement(data, size);
        }
        ~Complemented()
        {
            Complement(data, size);
        }
    } const complemented(data, size);

    downstream->Write(data, size);
}

CryptingInputStream::CryptingInputStream(InputStream & from) : InputStream(&from) {}

CryptingInputStream::~CryptingInputStream() noexcept(false) {}

void CryptingInputStream::Read(char * data, int size)
{
    if (size <= 0)
    {
        return;
    }
    source->Read(data, size);
    Complement(data, size);
}
