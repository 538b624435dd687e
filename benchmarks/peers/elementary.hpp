#pragma once

/// Checks and times exp, log and sigmoid of 513 floats beside the C library's.
void compare_elementary();
