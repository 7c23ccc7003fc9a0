// Main window: construction, layout, the event table, locking and the fading
// status line. The card list handling lives in MainFrameList.cpp, the PIN and
// test commands in MainFrameCommands.cpp.
#include "gui/MainFrame.h"

#include "app/ProgramConfig.h"
#include "app/VessaCardsLogger.h"
#include "base/Config.h"
#include "gui/CardList.h"
#include "gui/CardStatusText.h"
#include "gui/DiagnoseDialog.h"
#include "gui/HiDpiArt.h"
#include "gui/LocalizedBanner.h"
#include "gui/RefreshCardThread.h"
#include "gui/StatusLine.h"
#include "gui/Translate.h"
#include "token/ReturnCodeNames.h"
#include "token/acPKCS11.h"

#include <wx/bmpbuttn.h>
#include <wx/button.h>
#include <wx/icon.h>
#include <wx/msgdlg.h>
#include <wx/panel.h>
#include <wx/sizer.h>
#include <wx/statbmp.h>
#include <wx/statbox.h>
#include <wx/stattext.h>
#include <wx/utils.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

const std::string EMPTY_CARD = "0000000000000000";

// clang-format off
wxBEGIN_EVENT_TABLE(MainFrame, wxFrame)
    EVT_BUTTON(ID_SIG_CHANGE_PIN, MainFrame::evt_sig_change_pin)
    EVT_BUTTON(ID_SIG_PUK, MainFrame::evt_sig_puk)
    EVT_BUTTON(ID_SIG_SHOW_CERT, MainFrame::evt_sig_show_cert)
    EVT_BUTTON(ID_SIG_TEST, MainFrame::evt_sig_test)
    EVT_BUTTON(ID_ENC_CHANGE_PIN, MainFrame::evt_enc_change_pin)
    EVT_BUTTON(ID_ENC_PUK, MainFrame::evt_enc_puk)
    EVT_BUTTON(ID_ENC_SHOW, MainFrame::evt_enc_show)
    EVT_BUTTON(ID_ENC_TEST, MainFrame::evt_enc_test)
    EVT_BUTTON(ID_PERS_CHANGE, MainFrame::evt_pers_change)
    EVT_BUTTON(ID_PERS_PUK, MainFrame::evt_pers_puk)
    EVT_BUTTON(ID_PERS_SHOW, MainFrame::evt_pers_show)
    EVT_BUTTON(ID_RELOAD, MainFrame::evt_reload)
    EVT_TIMER(ID_START_TIMER, MainFrame::evt_OnTimer)
    EVT_TIMER(ID_FADE_TIMER, MainFrame::evt_OnFadeOut)
    EVT_TIMER(ID_WATCH_TIMER, MainFrame::evt_OnWatchTimer)
    EVT_DATAVIEW_SELECTION_CHANGED(ID_CARD_LIST, MainFrame::evt_ItemSelected)
    EVT_DATAVIEW_ITEM_CONTEXT_MENU(ID_CARD_LIST, MainFrame::evt_ItemRightClick)
    EVT_DATAVIEW_ITEM_ACTIVATED(ID_CARD_LIST, MainFrame::evt_ItemDoubleClick)
    EVT_MENU(ID_THREAD_FINISHED, MainFrame::evt_ThreadFinished)
    EVT_CHAR_HOOK(MainFrame::OnCharHook)
wxEND_EVENT_TABLE()
// clang-format on

namespace {

const int kStartDelayMs = 2;
const int kNumberColumnWidth = 170;
const int kChipWidth = 31;
const int kValidUntilWidth = 170;
// The smallest list still shows its header and four rows; the columns scroll.
const int kSmallestListWidth = 560;
const int kSmallestListHeight = 140;
const int kSmallestBannerHeight = 40;
// Often enough that a card shows within a second of its insertion, seldom
// enough that the look costs nothing noticeable.
const int kWatchIntervalMs = 200;

} // namespace

MainFrame::MainFrame(wxWindow* parent)
    : wxFrame(parent, wxID_ANY, wxEmptyString), m_Wait(this)
{
    std::string version;
    Korvex::Config::GetHandle(0)->GetString(VessaCards::CFG_VERSION, version);
    m_Version = wxString::FromUTF8(version.c_str());

    panel_main = new wxPanel(this, wxID_ANY);
    sizer_sig_staticbox = new wxStaticBox(panel_main, wxID_ANY, Tr("Signaturzertifikat"));
    sizer_enc_staticbox = new wxStaticBox(panel_main, wxID_ANY, Tr("Geheimhaltungszertifikat"));
    sizer_pers_staticbox = new wxStaticBox(panel_main, wxID_ANY, Tr("Infoboxbereich"));
    // Pictures at the display's scale: drawn anew on a high-density screen.
    const double scale = GetContentScaleFactor();
    m_BannerImage = LocalizedBanner();
    bitmap_banner = new wxStaticBitmap(panel_main, wxID_ANY, ArtBundle(ART_BANNER, scale));
    list_ctrl_cards = new CardList(panel_main, ID_CARD_LIST);
    // The list's key events stay with the list; Ctrl+C copies from there.
    list_ctrl_cards->Bind(wxEVT_KEY_DOWN, &MainFrame::evt_ListKeyDown, this);
    button_reload = new wxBitmapButton(panel_main, ID_RELOAD, ArtBundle(ART_RELOAD, scale));
    button_sig_change_pin = new wxButton(panel_main, ID_SIG_CHANGE_PIN, Tr("6 stellige PIN ändern"));
    button_sig_puk = new wxButton(panel_main, ID_SIG_PUK, Tr("6 stellige PIN entsperren"));
    button_sig_show_cert = new wxButton(panel_main, ID_SIG_SHOW_CERT, Tr("Zertifikat anzeigen"));
    button_sig_test = new wxButton(panel_main, ID_SIG_TEST, Tr("Signatur testen"));
    button_enc_change_pin = new wxButton(panel_main, ID_ENC_CHANGE_PIN, Tr("4 stellige PIN ändern"));
    button_enc_puk = new wxButton(panel_main, ID_ENC_PUK, Tr("4 stellige PIN entsperren"));
    button_enc_show = new wxButton(panel_main, ID_ENC_SHOW, Tr("Zertifikat anzeigen"));
    button_enc_test = new wxButton(panel_main, ID_ENC_TEST, Tr("Signatur testen"));
    button_pers_change = new wxButton(panel_main, ID_PERS_CHANGE, Tr("4 stellige PIN ändern"));
    button_pers_puk = new wxButton(panel_main, ID_PERS_PUK, Tr("4 stellige PIN entsperren"));
    button_pers_show = new wxButton(panel_main, ID_PERS_SHOW, Tr("Infobox anzeigen"));
    bitmap_status = new wxStaticBitmap(panel_main, wxID_ANY, ArtBundle(ART_OK, scale));
    label_status = new wxStaticText(panel_main, wxID_ANY, wxEmptyString, wxDefaultPosition,
                                    wxDefaultSize, wxALIGN_CENTRE_HORIZONTAL);
    for (wxStaticText*& label : label_pin_state)
        label = new wxStaticText(panel_main, wxID_ANY, wxEmptyString);
    label_list_hint = new wxStaticText(panel_main, wxID_ANY, wxEmptyString);

    set_properties();
    do_layout();
    SetUpAccessibility();

    list_ctrl_cards->SetImages({ArtBundle(ART_CHIP, scale), ArtBundle(ART_CHIP_WARNING, scale)});
    bitmap_status->Hide();
    label_status->Hide();
    label_list_hint->Hide();

    SetIcons(ProgramIcons(scale));
    if (!m_Version.empty())
        SetTitle(wxString::Format("%s (%s, %s)", Tr("Kartenverwaltung"), m_Version, "x64"));
    else
        SetTitle(wxString::Format("%s (%s)", Tr("Kartenverwaltung"), "x64"));

    list_ctrl_cards->AddColumn(Tr("Kartennummer"), kNumberColumnWidth);
    list_ctrl_cards->AddColumn(Tr("Ausgestellt für"), 350);
    list_ctrl_cards->AddColumn(Tr("Kartentyp"), 190);
    list_ctrl_cards->AddColumn(Tr("Gültig bis"), kValidUntilWidth);

    m_P11 = new Korvex::acPKCS11();
    if (!m_P11->init()) {
        const wxString failure = ModuleFailureText(Korvex::acPKCS11::GetLoadReport());
        const wxString message = "Error loading PKCS#11 library\n" + failure;
        std::cerr << message.utf8_str() << std::endl;
        // A second button leads to the report for support.
        wxMessageDialog box(nullptr, message, "Error", wxOK | wxHELP);
        box.SetHelpLabel(Tr("Diagnose"));
        if (box.ShowModal() == wxID_HELP) {
            DiagnoseDialog report(nullptr, ModuleFailureReport(m_Version, failure));
            report.ShowModal();
        }
        // Nothing can be done without the module; the status says the user
        // was told, not that the program failed. The toolkit is mid-way
        // through its start (inside this constructor), so its objects are
        // not torn down: quick_exit skips the static destructors that would
        // meet them half-built. Standard error and the log are flushed.
        std::quick_exit(0);
    }
    m_FadeTimer.SetOwner(this, ID_FADE_TIMER);
    m_StartTimer.SetOwner(this, ID_START_TIMER);
    m_WatchTimer.SetOwner(this, ID_WATCH_TIMER);
    long autoRefresh = 1;
    if (Korvex::Config::GetHandle(0)->GetInteger(VessaCards::CFG_AUTO_REFRESH, autoRefresh))
        m_AutoRefresh = autoRefresh != 0;
    // Also without card watching: retries and refreshes a command asked for.
    m_WatchTimer.Start(kWatchIntervalMs);
    // The first card-list load starts as soon as the event loop runs.
    m_StartTimer.Start(kStartDelayMs, wxTIMER_ONE_SHOT);
}

MainFrame::~MainFrame()
{
    m_StartTimer.Stop();
    m_FadeTimer.Stop();
    m_WatchTimer.Stop();
    // A PIN change cannot be cut off halfway: the card work ends before the
    // token goes, its result is dropped with the window.
    m_CardWork.Wait();
    if (m_Thread != nullptr) {
        // The thread still works with the token object; let it finish first.
        m_Thread->Wait();
        delete m_Thread;
        m_Thread = nullptr;
    }
    if (m_P11 != nullptr) {
        m_P11->destroy();
        delete m_P11;
        m_P11 = nullptr;
    }
}

void MainFrame::set_properties()
{
    button_reload->SetToolTip(Tr("Kartenliste neu laden"));
    label_status->SetFont(wxFont(11, wxFONTFAMILY_DEFAULT, wxFONTSTYLE_NORMAL, wxFONTWEIGHT_BOLD));
    // Room for six rows and every column at the size the window opens with.
    list_ctrl_cards->SetMinSize(wxSize(714 + kValidUntilWidth, 200));
    // A sixteen-digit card number must fit its column next to the chip
    // image; shrink the list's font until it does.
    const int numberSpace = kNumberColumnWidth - kChipWidth - 28;
    wxFont listFont = list_ctrl_cards->GetFont();
    int width = 0;
    for (;;) {
        list_ctrl_cards->GetTextExtent("0000000000000000", &width, nullptr, nullptr, nullptr, &listFont);
        if (width <= numberSpace || listFont.GetPointSize() <= 7)
            break;
        listFont.SetPointSize(listFont.GetPointSize() - 1);
    }
    list_ctrl_cards->SetFont(listFont);
}

void MainFrame::do_layout()
{
    wxBoxSizer* sizer_main = new wxBoxSizer(wxVERTICAL);
    sizer_main->Add(bitmap_banner, 0, wxALIGN_CENTER_HORIZONTAL | wxBOTTOM, 6);

    wxBoxSizer* sizer_list = new wxBoxSizer(wxHORIZONTAL);
    wxBoxSizer* sizer_list_column = new wxBoxSizer(wxVERTICAL);
    sizer_list_column->Add(list_ctrl_cards, 1, wxEXPAND);
    sizer_list_column->Add(label_list_hint, 0, wxEXPAND | wxTOP, 4);
    sizer_list->Add(sizer_list_column, 1, wxEXPAND | wxRIGHT, 6);
    sizer_list->Add(button_reload, 0, wxALIGN_TOP);
    sizer_main->Add(sizer_list, 1, wxEXPAND | wxLEFT | wxRIGHT, 10);

    wxStaticBoxSizer* sizer_sig = new wxStaticBoxSizer(sizer_sig_staticbox, wxVERTICAL);
    wxStaticBoxSizer* sizer_enc = new wxStaticBoxSizer(sizer_enc_staticbox, wxVERTICAL);
    wxStaticBoxSizer* sizer_pers = new wxStaticBoxSizer(sizer_pers_staticbox, wxVERTICAL);
    wxButton* sigButtons[] = {button_sig_change_pin, button_sig_puk, button_sig_show_cert, button_sig_test};
    wxButton* encButtons[] = {button_enc_change_pin, button_enc_puk, button_enc_show, button_enc_test};
    wxButton* persButtons[] = {button_pers_change, button_pers_puk, button_pers_show};
    for (wxButton* button : sigButtons)
        sizer_sig->Add(button, 0, wxEXPAND | wxALL, 3);
    for (wxButton* button : encButtons)
        sizer_enc->Add(button, 0, wxEXPAND | wxALL, 3);
    for (wxButton* button : persButtons)
        sizer_pers->Add(button, 0, wxEXPAND | wxALL, 3);
    sizer_sig->Add(label_pin_state[Korvex::APPL_SIGNATURE], 0, wxEXPAND | wxALL, 3);
    sizer_enc->Add(label_pin_state[Korvex::APPL_ENCRYPTION], 0, wxEXPAND | wxALL, 3);
    sizer_pers->Add(label_pin_state[Korvex::APPL_IDENTITY_LINK], 0, wxEXPAND | wxALL, 3);

    wxBoxSizer* sizer_groups = new wxBoxSizer(wxHORIZONTAL);
    sizer_groups->Add(sizer_sig, 1, wxEXPAND | wxRIGHT, 6);
    sizer_groups->Add(sizer_enc, 1, wxEXPAND | wxRIGHT, 6);
    sizer_groups->Add(sizer_pers, 1, wxEXPAND);
    sizer_main->Add(sizer_groups, 0, wxEXPAND | wxLEFT | wxRIGHT | wxTOP, 10);

    sizer_main->Add(StatusLine::MakeRow(bitmap_status, label_status, 40), 0, wxEXPAND | wxALL, 8);

    panel_main->SetSizer(sizer_main);
    wxBoxSizer* sizer_frame = new wxBoxSizer(wxVERTICAL);
    sizer_frame->Add(panel_main, 1, wxEXPAND);
    // Not SetSizerAndFit: the toolkit would fit the window again when it is
    // shown, to the smallest layout below.
    SetSizer(sizer_frame);
    SetClientSize(sizer_frame->GetMinSize());
    const wxSize comfortable = GetSize();

    // Smaller than that, the list keeps four rows and the banner gives way,
    // scaled as a whole.
    list_ctrl_cards->SetMinSize(wxSize(kSmallestListWidth, kSmallestListHeight));
    ScaleBanner(kSmallestBannerHeight);
    SetMinClientSize(sizer_main->CalcMin());
    ScaleBanner(m_BannerImage.GetHeight());
    SetSize(comfortable);
    Bind(wxEVT_SIZE, [this](wxSizeEvent& event) {
        FitBanner();
        event.Skip();
    });
    Layout();
}

void MainFrame::ScaleBanner(int height)
{
    height = std::max(1, std::min(height, m_BannerImage.GetHeight()));
    if (bitmap_banner->GetBitmap().IsOk() && bitmap_banner->GetMinSize().y == height)
        return;
    const int width = m_BannerImage.GetWidth() * height / m_BannerImage.GetHeight();
    // At its own size the banner is drawn for the display's scale; only a
    // window smaller than that shrinks it.
    if (height == m_BannerImage.GetHeight())
        bitmap_banner->SetBitmap(ArtBundle(ART_BANNER, GetContentScaleFactor()));
    else
        bitmap_banner->SetBitmap(wxBitmap(m_BannerImage.Scale(width, height, wxIMAGE_QUALITY_HIGH)));
    bitmap_banner->SetMinSize(wxSize(width, height));
}

void MainFrame::FitBanner()
{
    if (panel_main == nullptr || panel_main->GetSizer() == nullptr)
        return;
    // What the window has beyond the smallest layout goes to the banner
    // first, up to its own size; the list takes the rest.
    const wxSize client = GetClientSize();
    const int current = bitmap_banner->GetMinSize().y;
    const int others = panel_main->GetSizer()->CalcMin().y - current;
    int height = std::max(kSmallestBannerHeight, client.y - others);
    height = std::min(height, client.x * m_BannerImage.GetHeight() / m_BannerImage.GetWidth());
    ScaleBanner(height);
}

void MainFrame::MyEnable(bool enable)
{
    wxWindow* controls[] = {
        button_sig_change_pin, button_sig_puk,     button_sig_show_cert, button_sig_test,
        button_enc_change_pin, button_enc_puk,     button_enc_show,      button_enc_test,
        button_pers_change,    button_pers_puk,    button_pers_show,     button_reload,
        list_ctrl_cards,
    };
    for (wxWindow* control : controls)
        control->Enable(enable);
    if (enable)
        ApplySelectionRules();
}

wxStaticText* MainFrame::GetPinStateText(Korvex::ApplType appl) const
{
    return appl >= Korvex::APPL_SIGNATURE && appl <= Korvex::APPL_IDENTITY_LINK ? label_pin_state[appl] : nullptr;
}

wxString MainFrame::ModuleFailureText(const Korvex::ModuleLoadReport& report)
{
    const wxString library = wxString::FromUTF8(report.library.c_str());
    const wxString path = wxString::FromUTF8(report.path.c_str());
    switch (report.failure) {
    case Korvex::MODULE_NOT_FOUND:
        return wxString::Format(Tr("Die Moduldatei %s wurde im Bibliothekspfad nicht gefunden (LD_LIBRARY_PATH: %s)."),
                                library,
                                report.searchPath.empty() ? Tr("nicht gesetzt")
                                                          : wxString::FromUTF8(report.searchPath.c_str()));
    case Korvex::MODULE_NOT_LOADABLE:
        return wxString::Format(Tr("Die Moduldatei %s lässt sich nicht laden: %s"), library,
                                wxString::FromUTF8(report.loaderText.c_str()));
    case Korvex::MODULE_ENTRY_MISSING:
        return wxString::Format(Tr("Dem Modul %s fehlt der Einsprungpunkt %s."), path,
                                wxString::FromUTF8(report.entryPoint.c_str()));
    case Korvex::MODULE_INIT_FAILED:
        return wxString::Format(Tr("C_Initialize des Moduls %s ist fehlgeschlagen: %s"), path,
                                wxString::FromUTF8(Korvex::ReturnCodeName(report.rv).c_str()));
    default:
        return wxString::Format(Tr("Das Modul %s antwortet nicht wie erwartet."), path);
    }
}

void MainFrame::SetStatus(wxString text, bool isError)
{
    // The line repaints with the other windows disabled; disabling this one
    // too would take the keyboard focus from its controls for good.
    StatusLine::Show(this, this, label_status, bitmap_status, text, isError, m_Fade, m_FadeTimer,
                     button_pers_show->GetForegroundColour(), button_pers_show->GetBackgroundColour());
}

void MainFrame::evt_OnFadeOut(wxTimerEvent& /*event*/)
{
    if (bitmap_status == nullptr)
        return;
    StatusLine::Step(label_status, bitmap_status, m_Fade, m_FadeTimer);
}

void MainFrame::evt_OnTimer(wxTimerEvent& /*event*/)
{
    wxCommandEvent reload;
    evt_reload(reload);
}
