// How 32-bit Windows calls the library: with a stack on a word's boundary, where compilers like to have 16 bytes.
#if defined(_WIN32) && defined(__i386__)

#    include <gtest/gtest.h>

#    include <kvcore/frame/KVLogFile.h>

#    include "LogRig.h"

namespace
{

extern "C" void kvTestCallBeside(void (*call)(), unsigned bytes);

// Calls with the stack pointer this many bytes off a boundary of 16.
asm(R"(
    .text
_kvTestCallBeside:
    .cfi_startproc
    pushl %ebp
    .cfi_def_cfa_offset 8
    .cfi_offset 5, -8
    movl %esp, %ebp
    .cfi_def_cfa_register 5
    movl 8(%ebp), %eax
    andl $-16, %esp
    subl 12(%ebp), %esp
    call *%eax
    movl %ebp, %esp
    popl %ebp
    .cfi_def_cfa 4, 4
    ret
    .cfi_endproc
)");

void UseNumbersAndTexts()
{
    double volatile values[4] = {1.5, 2.5, 3.5, 4.5};
    double sum = 0;
    for (double const value : values)
    {
        sum += value / 3;
    }
    String text = String::FromFormat(TEXT("%.3f %s"), sum, TEXT("is it"));
    LooseLog const log;
    ScratchFolder const folder;
    log->SetFilename(folder.Name("log.txt").c_str());
    log->AddFormattedLine(TEXT("%.3f"), sum);
    log->AddLine(text);
    log.End();
    EXPECT_EQ(TextsOf(folder.Read("log.txt")), (std::vector<std::string>{"4.000", "4.000 is it"}));
}

TEST(Windows32Calls, NeedNoMoreThanAWordsBoundary)
{
    for (unsigned const bytes : {0u, 4u, 8u, 12u})
    {
        kvTestCallBeside(UseNumbersAndTexts, bytes);
        EXPECT_FALSE(testing::Test::HasFailure()) << bytes << " bytes beside a boundary";
    }
}

} // namespace

#endif
