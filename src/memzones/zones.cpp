// zones.cpp - memory zones: named in-memory lists of the calling program.
