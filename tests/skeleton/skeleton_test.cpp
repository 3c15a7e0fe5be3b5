#include <gtest/gtest.h>
#include "api/context.h"
TEST(Skeleton, ContextStartsIdle) { EXPECT_EQ(g_State_Machine, WAIT_START); }
