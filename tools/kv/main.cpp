#include <kvcore/tools/kv/RunKv.h>

int main(int argc, char ** argv)
{
    return kv::tools::RunProgram(argc, argv, "kv", kv::tools::RunKv);
}
