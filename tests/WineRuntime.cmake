# What a Windows binary needs to start under Wine: the compiler's DLLs beside it, and a Wine prefix made once.
file(GLOB runtime_folders /usr/lib/gcc/${CMAKE_SYSTEM_PROCESSOR}-w64-mingw32/*-posix)
list(APPEND runtime_folders /usr/${CMAKE_SYSTEM_PROCESSOR}-w64-mingw32/lib)
foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
    foreach(folder IN LISTS runtime_folders)
        if(EXISTS ${folder}/${dll})
            file(COPY ${folder}/${dll} DESTINATION ${PROJECT_BINARY_DIR}/bin)
        endif()
    endforeach()
endforeach()

add_test(NAME wine_prefix COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} cmd.exe /c ver)
set_tests_properties(
    wine_prefix PROPERTIES ENVIRONMENT "${test_environment}" FIXTURES_SETUP wine_prefix TIMEOUT 300)
