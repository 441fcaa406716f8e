#include <kvcore/platform/linux/messages/SystemMessages.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>

#include <string.h>

namespace kv::platform
{
namespace
{

/// A code that has a twin among the system's error numbers.
struct ErrorNumber
{
    DWORD code;
    int number;
};

constexpr ErrorNumber errorNumbers[] = {
    {0, 0},
    {2, ENOENT},
    {3, ENOENT},
    {4, EMFILE},
    {5, EACCES},
    {6, EBADF},
    {8, ENOMEM},
    {11, ENOEXEC},
    {14, ENOMEM},
    {15, ENODEV},
    {16, EBUSY},
    {17, EXDEV},
    {19, EROFS},
    {20, ENODEV},
    {21, ENOMEDIUM},
    {25, ESPIPE},
    {29, EIO},
    {30, EIO},
    {31, EIO},
    {36, ENFILE},
    {39, ENOSPC},
    {50, EOPNOTSUPP},
    {51, EHOSTUNREACH},
    {64, ENETRESET},
    {65, EACCES},
    {67, ENOENT},
    {80, EEXIST},
    {82, EACCES},
    {87, EINVAL},
    {89, EAGAIN},
    {109, EPIPE},
    {110, EIO},
    {111, ENAMETOOLONG},
    {112, ENOSPC},
    {113, EMFILE},
    {119, ENOSYS},
    {120, ENOSYS},
    {121, ETIMEDOUT},
    {123, EINVAL},
    {124, EINVAL},
    {128, ECHILD},
    {131, EINVAL},
    {132, ESPIPE},
    {145, ENOTEMPTY},
    {161, ENOENT},
    {167, ENOLCK},
    {170, EBUSY},
    {183, EEXIST},
    {193, ENOEXEC},
    {206, ENAMETOOLONG},
    {208, EINVAL},
    {223, EFBIG},
    {230, EPIPE},
    {231, EBUSY},
    {232, EPIPE},
    {233, ENOTCONN},
    {258, ETIMEDOUT},
    {267, ENOTDIR},
    {487, EFAULT},
    {534, EOVERFLOW},
    {995, ECANCELED},
    {996, EINPROGRESS},
    {997, EINPROGRESS},
    {1004, EINVAL},
    {1005, ENODEV},
    {1006, ESTALE},
    {1113, EILSEQ},
    {1117, EIO},
    {1131, EDEADLK},
    {1142, EMLINK},
    {1168, ENOENT},
    {1223, ECANCELED},
    {1225, ECONNREFUSED},
    {1231, ENETUNREACH},
    {1232, EHOSTUNREACH},
    {1236, ECONNABORTED},
    {1314, EPERM},
    {1392, EUCLEAN},
    {1450, ENOMEM},
    {1455, ENOMEM},
    {1460, ETIMEDOUT},
    {1784, EFAULT},
    {1816, EDQUOT},
    {1921, ELOOP},
    {2250, ENOTCONN},
};

/// A code that the system has no number for, or one that says less.
struct OwnText
{
    DWORD code;
    WCHAR const * text;
};

constexpr OwnText ownTexts[] = {
    {1, u"Function not supported for this object"},
    {12, u"Invalid access mode"},
    {13, u"Invalid data"},
    {18, u"No more files"},
    {23, u"Data error (checksum)"},
    {24, u"Wrong length of a request"},
    {27, u"Sector not found"},
    {32, u"The file is in use"},
    {33, u"A part of the file is locked"},
    {38, u"End of file reached"},
    {53, u"Network path not found"},
    {122, u"The buffer is too small"},
    {126, u"Module not found"},
    {127, u"Procedure not found in the module"},
    {144, u"The directory is no root of a file system"},
    {154, u"Volume label too long"},
    {157, u"Memory block discarded"},
    {158, u"Not locked"},
    {187, u"No semaphore of this name"},
    {203, u"No environment variable of this name"},
    {234, u"More data is available"},
    {235, u"Nothing was done"},
    {259, u"No more data is available"},
    {288, u"Not owned by the caller"},
    {298, u"Too many posts to a semaphore"},
    {299, u"Only part of the memory was read or written"},
    {317, u"No message text of this number"},
    {998, u"Invalid access to memory"},
    {1003, u"The function cannot be completed"},
    {1008, u"No token of this name"},
    {1009, u"Registry database damaged"},
    {1010, u"Invalid registry key"},
    {1011, u"Registry could not be opened"},
    {1012, u"Registry could not be read"},
    {1013, u"Registry could not be written"},
    {1016, u"Registry could not be read or written"},
    {1018, u"Registry key marked for deletion"},
    {1020, u"The registry key has keys below it"},
    {1021, u"Only volatile keys can be made below a volatile key"},
    {1132, u"The address is not aligned for mapping"},
    {1150, u"A newer version of the system is needed"},
    {1175, u"The file that was to be replaced could not be removed"},
    {1176, u"The replacement could not be renamed; the replaced file has its old name"},
    {1224, u"Not possible while a part of the file is mapped"},
    {1313, u"No privilege of this name"},
    {1359, u"Internal error"},
    {1400, u"Invalid window handle"},
    {1407, u"Unknown window class"},
    {1411, u"Window class does not exist"},
    {1418, u"Clipboard is not open"},
    {1438, u"Invalid style of a message box"},
    {1439, u"Invalid flag for a system parameter"},
    {1610, u"Damaged configuration data"},
    {1722, u"The server cannot be reached"},
    {1812, u"The module has no resources"},
    {1813, u"No resource of this type in the module"},
    {1814, u"No resource of this name in the module"},
    {1815, u"No resource of this language in the module"},
    {0x80004001, u"Not implemented"},
    {0x80004002, u"No such interface supported"},
    {0x80004003, u"Invalid pointer"},
    {0x80004004, u"Operation aborted"},
    {0x80004005, u"Unspecified error"},
    {0x8000FFFF, u"Unexpected failure"},
    {0x80010106, u"The thread's mode is set already"},
    {0x8001010E, u"The interface belongs to another thread"},
    {0x80020003, u"Member not found"},
    {0x80020005, u"Type mismatch"},
    {0x80020006, u"Unknown name"},
    {0x80020008, u"Invalid type of a variable"},
    {0x80020009, u"Exception occurred"},
    {0x8002000B, u"Invalid index"},
    {0x80030001, u"Invalid function of a stream or storage"},
    {0x80030002, u"Stream or storage not found"},
    {0x80030009, u"Invalid pointer for a stream or storage"},
    {0x80040003, u"Notices are not supported"},
    {0x80040110, u"The class cannot be aggregated"},
    {0x80040111, u"The class cannot make objects of this interface"},
    {0x80040154, u"Class not registered"},
    {0x800401F0, u"Object services were not started on this thread"},
    {0x800401F3, u"Invalid class string"},
    {0x800401F4, u"Invalid interface string"},
    {0x800401F8, u"The module of the class was not found"},
    {0x800401F9, u"The module of the class is damaged"},
    {0x800401FC, u"The object is registered already"},
    {0x800401FD, u"The object is not connected to its server"},
};

template <typename Row, std::size_t count>
Row const * Find(Row const (&rows)[count], DWORD code)
{
    Row const * const row =
        std::lower_bound(std::begin(rows), std::end(rows), code, [](Row const & r, DWORD c) { return r.code < c; });
    return row != std::end(rows) && row->code == code ? row : nullptr;
}

template <typename Row, std::size_t count>
constexpr bool IsSorted(Row const (&rows)[count])
{
    return std::is_sorted(
        std::begin(rows), std::end(rows), [](Row const & left, Row const & right) { return left.code < right.code; });
}
static_assert(IsSorted(errorNumbers) && IsSorted(ownTexts));

} // namespace

std::basic_string<WCHAR> SystemMessage(DWORD code)
{
    if ((code & 0xFFFF0000) == 0x80070000)
    {
        // A Win32 code in the form of an HRESULT.
        code &= 0xFFFF;
    }
    std::basic_string<WCHAR> text;
    if (OwnText const * const own = Find(ownTexts, code))
    {
        text = own->text;
    }
    else if (ErrorNumber const * const number = Find(errorNumbers, code))
    {
        // ASCII, in no language but the system's own, and not in a buffer that threads share.
        std::string_view const words = strerrordesc_np(number->number);
        text.assign(words.begin(), words.end());
    }
    else
    {
        return text;
    }
    return text += u"\r\n";
}

} // namespace kv::platform
