#pragma once

namespace zel::test {

// What this process has in use.

long residentKiB();
/// The most memory that was resident since `forgetPeak`, or since the start.
long peakKiB();
void forgetPeak();
long openDescriptors();
/// The lowest descriptor that is free.
int nextDescriptor();

}  // namespace zel::test
