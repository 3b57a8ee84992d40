#pragma once

namespace tivra {

/// What a request asks for, given to Request::setCommand.
enum Commands : int {
    SUBSCRIBE = 0,                      ///< updates of a symbol, without its present state
    UNSUBSCRIBE = 1,                    ///< end of a subscription
    QUERYDEPTH = 2,                     ///< the order book of a symbol, once
    QUERYSNAP = 3,                      ///< the present state of a symbol, once
    QUERYWILDCARD = 4,                  ///< the present state of all symbols that match a pattern, once
    QUERYDEPTHANDSUBSCRIBE = 5,         ///< the order book and then its updates
    QUERYSNAPANDSUBSCRIBE = 6,          ///< the present state and then updates
    LISTENUMERATION = 7,                ///< the values of the enumerated fields
    LISTAVAILABLETOKENS = 8,            ///< the dictionary
    LISTADMINISTRATIONINFO = 9,         ///< administration information of the hub
    LISTEXTENDEDEXCHANGEINFO = 10,      ///< the sources with their details
    SELECTUSERFILTERTOKENS = 11,        ///< limit of the fields that are delivered
    LISTSUBSCRIBEDSYMBOLS = 12,         ///< the symbols that this user has subscribed
    QUERYXREF = 13,                     ///< cross references of a symbol
    LISTUSERPERMISSION = 14,            ///< the permissions of the user
    GETACTIVECLIENTSINFO = 15,          ///< the clients that are connected to the hub
    GETALLUSERS = 16,                   ///< the users that the hub knows
    SETCONFLATIONINTERVAL = 17,         ///< the interval over which the hub conflates
    SUBSCRIBEWILDCARD = 18,             ///< updates of all symbols that match a pattern
    QUERYSNAPANDSUBSCRIBEWILDCARD = 19, ///< the present state of all that match, and then updates
    UNSUBSCRIBEWILDCARD = 20,           ///< end of a subscription by pattern
    ADDALTERNATEINDEX = 21,             ///< alternate identifiers for all messages of a source
    GETSOURCEPORTDETAILS = 22,          ///< which hub serves which source
    SETL2CONFLATIONINTERVAL = 23        ///< the interval over which the hub conflates order books
};

} // namespace tivra
