/* The description bytes the test plug-ins write: a pattern of their own per plug-in, so that a
   test can tell whose description it holds and that every byte arrived. Shared by the plug-ins
   (C) and the tests (C++). */
#ifndef ZQ_FIXTURE_PLUGIN_H
#define ZQ_FIXTURE_PLUGIN_H

#define ZQ_FIXTURE_DESCRIPTION_SIZE 524

static inline unsigned char zq_fixture_byte(unsigned seed, unsigned index) {
    return (unsigned char)((seed * 131u + index * 7u + (index >> 8) * 3u + 1u) & 0xFFu);
}

#endif
