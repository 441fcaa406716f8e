#include <kvcore/streams/NewMemoryBlock.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace NewMemoryBlock
{

struct MemoryBlock::Record
{
    int refCount;
    char * data;
    int size;
};

MemoryBlock::Record * MemoryBlock::NewRecord(int size)
{
    auto owner = std::make_unique<Record>(Record{1, nullptr, size});
    owner->data = static_cast<char *>(std::malloc(static_cast<std::size_t>(size)));
    if (!owner->data)
    {
        throw std::bad_alloc();
    }
    return owner.release();
}

MemoryBlock::MemoryBlock() : record(nullptr) {}

MemoryBlock::MemoryBlock(int size) : record(size > 0 ? NewRecord(size) : nullptr) {}

MemoryBlock::MemoryBlock(MemoryBlock const & other) : record(other.record)
{
    if (record)
    {
        ++record->refCount;
    }
}

MemoryBlock & MemoryBlock::operator=(MemoryBlock const & other)
{
    if (record != other.record)
    {
        Release();
        record = other.record;
        if (record)
        {
            ++record->refCount;
        }
    }
    return *this;
}

MemoryBlock::~MemoryBlock()
{
    Release();
}

void MemoryBlock::Release()
{
    Record * const old = std::exchange(record, nullptr);
    if (old && --old->refCount == 0)
    {
        std::free(old->data);
        delete old;
    }
}

int MemoryBlock::size() const
{
    return record ? record->size : 0;
}

MemoryBlock::operator char const *() const
{
    return record ? record->data : nullptr;
}

MemoryBlock::operator char *()
{
    if (!record)
    {
        return nullptr;
    }
    if (record->refCount != 1)
    {
        Record * const own = NewRecord(record->size);
        std::memcpy(own->data, record->data, static_cast<std::size_t>(record->size));
        --record->refCount;
        record = own;
    }
    return record->data;
}

void MemoryBlock::resize(int size)
{
    int const newSize = std::max(size, 0);
    if (newSize == this->size())
    {
        return;
    }
    if (newSize == 0)
    {
        Release();
    }
    else if (record && record->refCount == 1)
    {
        void * const data = std::realloc(record->data, static_cast<std::size_t>(newSize));
        if (!data)
        {
            throw std::bad_alloc();
        }
        record->data = static_cast<char *>(data);
        record->size = newSize;
    }
    else
    {
        Record * const own = NewRecord(newSize);
        if (record)
        {
            std::memcpy(own->data, record->data, static_cast<std::size_t>(std::min(record->size, newSize)));
            --record->refCount;
        }
        record = own;
    }
}

} // namespace NewMemoryBlock
