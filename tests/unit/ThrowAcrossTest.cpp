// SigIntException is one type to the library, to a program and to a plug-in that sees the library
// on its own. The program comes in two kinds: linked with the library, and knowing only the header.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <vorel/interrupt/SigIntException.h>

namespace {

class ThrowAcross : public testing::TestWithParam<int> {
 protected:
   void SetUp() override {
      plugin_ = dlopen(THROW_ACROSS_PLUGIN, RTLD_NOW | GetParam());
      ASSERT_NE(plugin_, nullptr) << dlerror();
   }
   ~ThrowAcross() override {
      if (plugin_ != nullptr)
         dlclose(plugin_);
   }

   template <class Function>
   Function* find(const char* name) {
      void* function = dlsym(plugin_, name);
      EXPECT_NE(function, nullptr) << name;
      return reinterpret_cast<Function*>(function);
   }

 private:
   void* plugin_ = nullptr;
};

void throwInProgram() {
   throw vorel::SigIntException();
}

TEST_P(ThrowAcross, IsCaughtByType) {
   const auto throwInLibrary = find<void()>("throwInLibrary");
   const auto throwInPlugin = find<void()>("throwInPlugin");
   const auto catchInPlugin = find<bool(void (*)())>("catchInPlugin");
   EXPECT_THROW(throwInLibrary(), vorel::SigIntException);
   EXPECT_THROW(throwInPlugin(), vorel::SigIntException);
   EXPECT_TRUE(catchInPlugin(throwInLibrary));
   EXPECT_TRUE(catchInPlugin(throwInProgram));
   EXPECT_NO_THROW(find<void()>("catchInLibrary")());
}

// Local comes first: once a plug-in has been global, it stays so.
INSTANTIATE_TEST_SUITE_P(LocalThenGlobal, ThrowAcross, testing::Values(RTLD_LOCAL, RTLD_GLOBAL));

}  // namespace
