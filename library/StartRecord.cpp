#include <kvcore/library/StartRecord.h>

#include <cstddef>

namespace kv::detail
{

namespace
{

// No objects with constructors: these are in use before and after all others.
constexpr std::size_t maxLandmarks = 32;
char const * passed[maxLandmarks];
std::size_t passedCount;
void (*stopObserver)(char const *);

} // namespace

StartLandmark::StartLandmark(char const * landmarkName) : name(landmarkName)
{
    if (passedCount < maxLandmarks)
    {
        passed[passedCount++] = name;
    }
}

StartLandmark::~StartLandmark()
{
    if (stopObserver != nullptr)
    {
        stopObserver(name);
    }
}

std::vector<char const *> StartedObjects()
{
    return std::vector<char const *>(passed, passed + passedCount);
}

void ObserveStop(void (*observer)(char const * name))
{
    stopObserver = observer;
}

} // namespace kv::detail
