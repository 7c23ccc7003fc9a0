// The identity-link writer's run; see WriterRun.h.
#include "gui/WriterRun.h"

#include <wx/stream.h>
#include <wx/txtstrm.h>
#include <wx/utils.h>

namespace {

wxString Drain(wxInputStream* stream)
{
    wxString text;
    if (stream == nullptr)
        return text;
    char buffer[1024];
    // The writer prints a few lines; a runaway one is cut off.
    while (text.length() < 8192 && stream->CanRead()) {
        stream->Read(buffer, sizeof buffer);
        const size_t got = stream->LastRead();
        if (got == 0)
            break;
        text += wxString::FromUTF8(buffer, got);
    }
    return text;
}

} // namespace

WriterRun* WriterRun::Start(const wxString& commandLine)
{
    WriterRun* run = new WriterRun();
    if (wxExecute(commandLine, wxEXEC_ASYNC, run) <= 0) {
        delete run;
        return nullptr;
    }
    return run;
}

void WriterRun::Abandon()
{
    if (m_finished)
        delete this;
    else
        m_abandoned = true;
}

void WriterRun::OnTerminate(int /*pid*/, int status)
{
    m_status = status;
    m_output = Drain(GetInputStream()) + Drain(GetErrorStream());
    m_output.Trim(true).Trim(false);
    m_finished = true;
    if (m_abandoned)
        delete this;
}
