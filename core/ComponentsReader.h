// A getter's admission to the core's components. The meter, volume, spectrum and waveform
// getters may be called from any thread at any time of the core object's life, while the
// host's thread creates the components in Init and destroys them in Shutdown. A getter counts
// itself in, then looks whether the components are open; Shutdown closes them, then waits until
// no getter is counted. Both sides use sequentially consistent operations, so either the getter
// sees the components closed, or Shutdown sees the getter and waits for it: no component is
// destroyed under a getter, and a getter never waits (Shutdown's wait is as short as one
// getter call, which takes no lock held across a device open).
#pragma once

#include "zqCoreAudio.h"

class CZQCoreAudio::CComponentsReader {
public:
    explicit CComponentsReader(CZQCoreAudio& core) : m_core(core) {
        m_core.m_nComponentReaders.fetch_add(1);
        m_bOpen = m_core.m_bComponentsOpen.load();
    }
    ~CComponentsReader() { m_core.m_nComponentReaders.fetch_sub(1); }
    CComponentsReader(const CComponentsReader&) = delete;
    CComponentsReader& operator=(const CComponentsReader&) = delete;

    // read(reader) while the components are open, else empty.
    template <typename Result, typename Read>
    static Result Use(CZQCoreAudio& core, Result empty, Read&& read) {
        const CComponentsReader components(core);
        if (!components) return empty;
        return read(components);
    }

    // Whether the components exist for the length of this reader.
    explicit operator bool() const { return m_bOpen; }
    CAudioCapture& Capture() const { return *m_core.m_pCapture; }
    CAudioRender& Render() const { return *m_core.m_pRender; }
    CAudioAnalyzer& Analyzer() const { return *m_core.m_pAnalyzer; }

private:
    CZQCoreAudio& m_core;
    bool m_bOpen;
};
