#include <utility>

#include "Document.h"

namespace kv::platform
{

namespace
{

class ParseError final : public Counted<IXMLDOMParseError>
{
public:
    explicit ParseError(Problem newProblem) : problem(std::move(newProblem)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void ** object) override
    {
        return Answer(iid, IID_IXMLDOMParseError, object);
    }
    HRESULT STDMETHODCALLTYPE get_errorCode(LONG * code) override
    {
        return GiveNumber(problem.code, code);
    }
    HRESULT STDMETHODCALLTYPE get_url(BSTR * url) override
    {
        std::string const text = Utf8Of(problem.url.data(), problem.url.size());
        return Guarded([&] { return GiveText(text.empty() ? nullptr : text.c_str(), url); });
    }
    HRESULT STDMETHODCALLTYPE get_reason(BSTR * reason) override
    {
        return Guarded([&] { return GiveText(problem.reason.empty() ? nullptr : problem.reason.c_str(), reason); });
    }
    HRESULT STDMETHODCALLTYPE get_line(LONG * line) override
    {
        return GiveNumber(problem.line, line);
    }
    HRESULT STDMETHODCALLTYPE get_linepos(LONG * position) override
    {
        return GiveNumber(problem.position, position);
    }

private:
    static HRESULT GiveNumber(LONG number, LONG * target)
    {
        if (target == nullptr)
        {
            return E_INVALIDARG;
        }
        *target = number;
        return number == 0 ? S_FALSE : S_OK;
    }

    HRESULT STDMETHODCALLTYPE slot_get_srcText() override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE slot_get_filepos() override
    {
        return E_NOTIMPL;
    }

    Problem const problem;
};

} // namespace

HRESULT GiveProblem(Problem problem, IXMLDOMParseError ** target)
{
    if (target == nullptr)
    {
        return E_INVALIDARG;
    }
    *target = nullptr;
    *target = new ParseError(std::move(problem));
    return S_OK;
}

} // namespace kv::platform
