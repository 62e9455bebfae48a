// Exit handlers of the libraries run at the very end of the process, also where an application has closed them with
// dlclose(3).

#include <dlfcn.h>
#include <gmock/gmock.h>

namespace {

class LoadedLibrary : public testing::TestWithParam<const char*> {};

TEST_P(LoadedLibrary, StaysToTheEndOfTheProcess) {
  void* const library = dlopen(GetParam(), RTLD_NOW);
  ASSERT_NE(library, nullptr) << dlerror();
  dlclose(library);
  EXPECT_NE(dlopen(GetParam(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Both, LoadedLibrary, testing::Values(ZEL_COMMON_TYPES, ZEL_SYS_MGR_API));

}  // namespace
