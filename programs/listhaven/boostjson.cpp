// The one unit that holds the JSON library, which comes as headers only.
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <boost/json/src.hpp>
