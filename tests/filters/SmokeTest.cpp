#include <gtest/gtest.h>
#include "filters/GPUImageContext.h"
TEST(Smoke, Context) {
  std::string name;
  oxelo::runSynchronouslyOnVideoProcessingQueue([&] { name = oxelo::GPUImageContext::sharedImageProcessingContext().rendererName(); });
  EXPECT_FALSE(name.empty()) << oxelo::GPUImageContext::sharedImageProcessingContext().failureReason();
}
