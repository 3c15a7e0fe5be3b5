// Link-time wrappers of the ZEV calls (linked with WAPIWPS_ZEV_WRAP_OPTIONS, zev/CMakeLists.txt):
// every call of either side goes through zev_wrap.cpp, which brackets the real call with the two
// hooks below. A program that links with the options defines both hooks.
#pragma once

void zev_wrap_enter();
void zev_wrap_leave();
