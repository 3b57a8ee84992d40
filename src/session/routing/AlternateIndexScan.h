#pragma once

namespace tivra_internal {

class RequestInternal;

/// Looks through a request without a symbol for alternate identifiers, and enters each in the request's
/// `altIndex`. A subscribe by alternate identifier becomes a snap and subscribe: the snap tells the ticker,
/// and the read handler keeps its output from the application. May be repeated on a request that has to be
/// routed again.
/// @return true when at least one identifier was found
bool scanAlternateIndexes(RequestInternal& request);

} // namespace tivra_internal
