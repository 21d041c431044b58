#pragma once

namespace tavd {

/// Puts what became of inventories and events where tavctl finds it (rmc/DeliveryRecord.h).
/// Replaces the file as a whole, follows no link and waits for nothing; without room or right there
/// is no file, which costs nobody anything.
void writeStatusFile();

}  // namespace tavd
