#pragma once

// Calls to components: what they hand out is held by objects, and what they report is thrown.

#include <utility>

#include <kvcore/core/String.h>
#include <kvcore/platform/xmldom.h>

namespace kv::detail
{

/// A failed call. Never leaves the operation that made the call.
class ComFailure
{
public:
    explicit ComFailure(HRESULT failure) : result(failure) {}
    /// With the report that the call left for this thread, if `object` leaves such.
    ComFailure(HRESULT failure, IUnknown * object);

    /// The text for a user: what the object said, and what the system says to the result.
    String Report() const;

private:
    HRESULT result;
    String description;
};

/// An interface pointer with a reference.
template <typename Interface>
class ComPointer
{
public:
    ComPointer() = default;
    ComPointer(ComPointer && other) noexcept : pointer(std::exchange(other.pointer, nullptr)) {}
    ComPointer(ComPointer const &) = delete;
    ComPointer & operator=(ComPointer const &) = delete;
    ~ComPointer()
    {
        if (pointer != nullptr)
        {
            pointer->Release();
        }
    }

    Interface * Get() const
    {
        return pointer;
    }
    explicit operator bool() const
    {
        return pointer != nullptr;
    }
    /// Null is a failed call, too: a component that reports success without the object it promised has failed.
    Interface * operator->() const
    {
        if (pointer == nullptr)
        {
            throw ComFailure(E_POINTER);
        }
        return pointer;
    }

    /// For a call that stores a pointer with a reference. Once.
    Interface ** Receive()
    {
        return &pointer;
    }
    void ** ReceiveVoid()
    {
        return reinterpret_cast<void **>(&pointer);
    }

private:
    Interface * pointer = nullptr;
};

/// Throws for a failed call of `object`.
inline void Check(IUnknown * object, HRESULT result)
{
    if (FAILED(result))
    {
        throw ComFailure(result, object);
    }
}
template <typename Interface>
void Check(ComPointer<Interface> const & object, HRESULT result)
{
    Check(object.Get(), result);
}

/// A text for or from a call.
class BStr
{
public:
    BStr() = default;
    /// Throws E_OUTOFMEMORY. A null text stays null.
    explicit BStr(WCHAR const * source);
    BStr(BStr const &) = delete;
    BStr & operator=(BStr const &) = delete;
    ~BStr()
    {
        SysFreeString(text);
    }

    operator BSTR() const
    {
        return text;
    }
    BSTR * Receive()
    {
        return &text;
    }
    WString Text() const
    {
        return text == nullptr ? WString() : WString(text, SysStringLen(text));
    }

private:
    BSTR text = nullptr;
};

/// A value from a call.
class Variant
{
public:
    Variant()
    {
        VariantInit(&value);
    }
    Variant(Variant const &) = delete;
    Variant & operator=(Variant const &) = delete;
    ~Variant()
    {
        VariantClear(&value);
    }

    VARIANT * Receive()
    {
        return &value;
    }
    bool IsNull() const
    {
        return value.vt == VT_NULL;
    }
    /// Throws for a value of another type: no component that is called here gives one.
    WString Text() const;

private:
    VARIANT value;
};

} // namespace kv::detail
