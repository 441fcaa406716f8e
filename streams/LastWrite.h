#pragma once

#include <exception>

namespace kv::detail
{

/// A member of each stream that writes in its destructor: runs that write, and lets its failure leave the destructor
/// only if no exception is on its way already. A second one would end the program.
///
/// It compares with the count at construction, since a whole chain may live inside a destructor that runs because of
/// an exception; its failures concern only the code around it.
class LastWrite
{
public:
    template <typename Action>
    void Run(Action action) const
    {
        try
        {
            action();
        }
        catch (...)
        {
            if (std::uncaught_exceptions() <= exceptionsAtStart)
            {
                throw;
            }
        }
    }

private:
    int const exceptionsAtStart = std::uncaught_exceptions();
};

} // namespace kv::detail
