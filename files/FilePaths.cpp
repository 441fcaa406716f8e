// The rules on paths that look at nothing but the text.

#include <kvcore/files/File.h>

#include <kvcore/files/PathRules.h>

#include <stdexcept>

using kv::detail::BeginsWithDrive;
using kv::detail::BeginsWithRoot;
using kv::detail::dot;
using kv::detail::IsEmptyText;
using kv::detail::IsRoot;
using kv::detail::PathView;
using kv::detail::separator;

namespace
{

String ToString(PathView view)
{
    return String(WString(view));
}

// Where the last component starts, as far as a backslash tells.
std::size_t AfterLastSeparator(PathView path)
{
    return path.rfind(separator) + 1; // 0 if there is none: npos wraps
}

// What GetBasename gives with no suffix. Of a root it is the backslash.
PathView NameOf(PathView path)
{
    if (IsEmptyText(path))
    {
        return {};
    }
    if (IsRoot(path))
    {
        return path.substr(2, 1);
    }
    std::size_t const start = AfterLastSeparator(path);
    return path.substr(start == 0 && BeginsWithDrive(path) ? 2 : start);
}

} // namespace

bool File::IsDriveRoot(String const & path)
{
    return IsRoot(path);
}

bool File::IsPathAbsolute(String const & path)
{
    return BeginsWithRoot(path) || (path.size() >= 2 && path[0] == separator && path[1] == separator);
}

String File::GetDirname(String const & path)
{
    PathView const view = path;
    if (IsRoot(view))
    {
        return path;
    }
    std::size_t const last = view.rfind(separator);
    if (last == PathView::npos)
    {
        return String::FromChar(dot, 1);
    }
    // "c:" alone would be the drive's current directory.
    bool const isDrive = last == 2 && BeginsWithDrive(view);
    return ToString(view.substr(0, isDrive ? 3 : last));
}

String File::GetBasename(String const & path, String const & suffix)
{
    PathView name = NameOf(path);
    if (!suffix.empty() && !IsEmptyText(path) && !IsRoot(path))
    {
        if (suffix.size() > name.size())
        {
            throw std::length_error("string too long");
        }
        // Kept: no test whether the name ends in the suffix. Callers hand in "the usual extension" and expect that many
        // characters to go.
        if (name != PathView(suffix))
        {
            name.remove_suffix(suffix.size());
        }
    }
    return ToString(name);
}

String File::GetFileExtension(String const & path)
{
    PathView const name = NameOf(path);
    std::size_t const last = name.rfind(dot);
    return last == PathView::npos ? String() : ToString(name.substr(last));
}

String File::GetFileTitleW(String const & path)
{
    PathView const name = NameOf(path);
    return ToString(name.substr(0, name.rfind(dot)));
}

String File::GetFilePathWithoutExtension(String const & path)
{
    // Kept: a dot in a directory's name cuts the path when the file has none of its own.
    PathView const view = path;
    return ToString(view.substr(0, view.rfind(dot)));
}

String File::CutExtension(String const & path, String const & extension)
{
    PathView const view = path;
    std::size_t const cut = extension.empty() ? view.rfind(dot)
                                              // Kept: the search may end at an earlier occurrence.
                                              : view.rfind(PathView(extension), view.size() - extension.size());
    if (cut == PathView::npos || view.find(separator, cut) != PathView::npos)
    {
        return path;
    }
    return ToString(view.substr(0, cut));
}

String File::SwitchExtension(String const & path, String const & newExtension)
{
    if (IsEmptyText(path))
    {
        return String();
    }
    String result = CutExtension(path, String());
    result += newExtension;
    return result;
}

namespace
{

// "\a", which belongs to a drive, but not "\\a", and not the backslash alone.
bool IsRootedName(PathView name)
{
    return name.size() >= 2 && name[0] == separator && name[1] != separator;
}

} // namespace

String File::MakePath(String const & dir, String const & name)
{
    if (IsEmptyText(dir))
    {
        return name;
    }
    if (name.empty())
    {
        return dir;
    }
    PathView front = dir;
    bool separates = false;
    if (!IsRoot(front))
    {
        if (IsRootedName(name))
        {
            std::size_t const first = front.find(separator);
            front = front.substr(0, first == PathView::npos ? 0 : first);
        }
        else
        {
            front = front.substr(0, front.find_last_not_of(separator) + 1); // to nothing if it is all backslashes
            separates = true;
        }
    }
    String result;
    result.reserve(front.size() + 1 + name.size());
    result.append(front);
    if (separates)
    {
        result.push_back(separator);
    }
    result.append(name);
    return result;
}
