#pragma once

#include <utility>

namespace Storyboard
{

/// Owns one reference to an object that counts its references.
///
/// Whether a bare pointer brings its reference along is said where the pointer comes from; hence two makers.
template <typename T>
class Ptr
{
public:
    Ptr() = default;
    Ptr(Ptr const & other) : object(other.object)
    {
        if (object)
        {
            object->AddRef();
        }
    }
    Ptr(Ptr && other) noexcept : object(std::exchange(other.object, nullptr)) {}
    ~Ptr()
    {
        if (object)
        {
            object->Release();
        }
    }
    Ptr & operator=(Ptr other) noexcept
    {
        std::swap(object, other.object);
        return *this;
    }

    /// A new object; the reference that it is born with is this one.
    template <typename... Arguments>
    static Ptr Make(Arguments &&... arguments)
    {
        return Adopt(new T(std::forward<Arguments>(arguments)...));
    }
    /// Takes over a reference that the caller owns. Null gives an empty pointer.
    static Ptr Adopt(T * owned)
    {
        Ptr result;
        result.object = owned;
        return result;
    }
    /// Adds a reference to an object that somebody else holds. Null gives an empty pointer.
    static Ptr Share(T * borrowed)
    {
        if (borrowed)
        {
            borrowed->AddRef();
        }
        return Adopt(borrowed);
    }

    T * Get() const
    {
        return object;
    }
    T * operator->() const
    {
        return object;
    }
    T & operator*() const
    {
        return *object;
    }
    explicit operator bool() const
    {
        return object != nullptr;
    }

private:
    T * object = nullptr;
};

} // namespace Storyboard
