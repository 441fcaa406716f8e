// MD5SumStream beside OpenSSL's digest.

#include <cstring>
#include <string>

#include <openssl/evp.h>

#include <kvcore/streams/MD5.h>

#include "Jobs.h"

namespace
{

void OpenSsl(std::string const & data, unsigned char * digest)
{
    EVP_MD_CTX * const context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_md5(), nullptr);
    for (std::size_t at = 0; at < data.size(); at += 0x10000)
    {
        EVP_DigestUpdate(context, data.data() + at, std::min<std::size_t>(0x10000, data.size() - at));
    }
    EVP_DigestFinal_ex(context, digest, nullptr);
    EVP_MD_CTX_free(context);
}

MD5Sum Ours(std::string const & data)
{
    MD5SumStream stream;
    bench::WriteInPieces(stream, data);
    return stream.GetMD5Sum();
}

std::string Hex(unsigned char const * digest)
{
    std::string text;
    for (int i = 0; i < 16; ++i)
    {
        text += "0123456789ABCDEF"[digest[i] >> 4];
        text += "0123456789ABCDEF"[digest[i] & 15];
    }
    return text;
}

void AddSize(std::string const & variant, std::size_t size)
{
    std::string const data = bench::RandomBytes(size);
    unsigned char digest[16];
    OpenSsl(data, digest);
    bench::Require(Ours(data).HexString() == Hex(digest), "MD5SumStream/" + variant);

    bench::Add("MD5SumStream/" + variant + "/ours", size, [data] { benchmark::DoNotOptimize(Ours(data)); });
    bench::Add(
        "MD5SumStream/" + variant + "/openssl", size,
        [data]
        {
            unsigned char result[16];
            OpenSsl(data, result);
            benchmark::DoNotOptimize(result);
        });
}

void AddJobs()
{
    AddSize("1MiB", 0x100000);
    AddSize("100", 100);
}

bench::Source const source(AddJobs);

} // namespace
