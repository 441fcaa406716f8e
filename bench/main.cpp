#include "Jobs.h"

int main(int argc, char ** argv)
{
    for (auto addJobs : bench::Sources())
    {
        addJobs();
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
