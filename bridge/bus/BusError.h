#pragma once

#include <stdexcept>

namespace tivra_bus {

/// Something of the bus can't be used: what() says what was attempted, what is wrong and what to do.
class BusError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the engine refuses or leaves unanswered for now, and may do later: it starts, or its servers elect a
/// leader.
class UnreadyError : public BusError {
public:
    using BusError::BusError;
};

/// A message that isn't what the layout says: what() says where in it, and what was wanted.
class BatchError : public BusError {
public:
    using BusError::BusError;
};

/// The values of one record; those after it can still be read.
class BodyError : public BatchError {
public:
    using BatchError::BatchError;
};

} // namespace tivra_bus
