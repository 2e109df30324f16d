// handlers.cpp - the handlers of this family (filled as the family lands).
