// The card list on a native list view: rows, their images, colours and
// tooltips.
#include "gui/CardList.h"

#include <wx/tooltip.h>
#include <wx/utils.h>

#include <dlfcn.h>

namespace {

// GTK's overlay scrollbars show only while the pointer moves over the list:
// a holder who does not know more cards are listed would never see them.
// Called by name, since the toolkit's own headers are not at hand.
void ShowScrollbarsAlways(wxWindow* list)
{
#ifdef __WXGTK__
    using SetOverlay = void (*)(void* scrolledWindow, int overlay);
    if (auto set = reinterpret_cast<SetOverlay>(dlsym(RTLD_DEFAULT, "gtk_scrolled_window_set_overlay_scrolling")))
        set(list->GetHandle(), 0);
#else
    (void)list;
#endif
}

} // namespace

// Keeps a background colour per row beside the values the list store holds.
class CardList::Store : public wxDataViewListStore {
public:
    std::vector<wxColour> backgrounds;

    bool GetAttrByRow(unsigned row, unsigned /*column*/, wxDataViewItemAttr& attr) const override
    {
        if (row >= backgrounds.size() || !backgrounds[row].IsOk())
            return false;
        attr.SetBackgroundColour(backgrounds[row]);
        return true;
    }
};

CardList::CardList(wxWindow* parent, wxWindowID id)
    : wxDataViewListCtrl(parent, id, wxDefaultPosition, wxDefaultSize,
                         wxDV_SINGLE | wxDV_ROW_LINES | wxSUNKEN_BORDER)
{
    m_Store = new Store;
    AssociateModel(m_Store);
    m_Store->DecRef();
    ShowScrollbarsAlways(this);
    // A typed letter would open the view's search box, which then takes the
    // keys the window itself uses (Ctrl+C copies the card number).
    Bind(wxEVT_CHAR, [](wxKeyEvent& event) {
        const wxChar typed = event.GetUnicodeKey();
        if (typed == WXK_NONE || typed <= ' ' || event.ControlDown() || event.AltDown())
            event.Skip();
    });
    // The motion event counts from below the header, the hit test from the
    // list's top: the pointer's own position suits the hit test.
    Bind(wxEVT_MOTION, [this](wxMouseEvent& event) {
        ShowToolTipAt(ScreenToClient(wxGetMousePosition()));
        event.Skip();
    });
    Bind(wxEVT_LEAVE_WINDOW, [this](wxMouseEvent& event) {
        ShowToolTipAt(wxPoint(-1, -1));
        event.Skip();
    });
}

void CardList::AddColumn(const wxString& title, int width)
{
    if (GetColumnCount() == 0)
        AppendIconTextColumn(title, wxDATAVIEW_CELL_INERT, width, wxALIGN_LEFT);
    else
        AppendTextColumn(title, wxDATAVIEW_CELL_INERT, width, wxALIGN_LEFT);
}

void CardList::SetImages(std::vector<wxBitmapBundle> images)
{
    m_Images = std::move(images);
}

wxBitmapBundle CardList::Image(int image) const
{
    return image >= 0 && image < static_cast<int>(m_Images.size()) ? m_Images[image] : wxBitmapBundle();
}

int CardList::InsertRow(int row, const Row& contents)
{
    const int count = GetItemCount();
    if (row < 0 || row > count)
        row = count;
    wxVector<wxVariant> values;
    for (unsigned column = 0; column < GetColumnCount(); ++column) {
        const wxString text = column < contents.texts.size() ? contents.texts[column] : wxString();
        if (column == 0) {
            values.push_back(wxVariant(wxDataViewIconText(text, Image(contents.image))));
        } else {
            values.push_back(wxVariant(text));
        }
    }
    m_Store->backgrounds.insert(m_Store->backgrounds.begin() + row, contents.background);
    m_ImageOfRow.insert(m_ImageOfRow.begin() + row, contents.image);
    m_ToolTips.insert(m_ToolTips.begin() + row, contents.toolTip);
    InsertItem(row, values, static_cast<wxUIntPtr>(contents.data));
    return row;
}

void CardList::DeleteAllRows()
{
    DeleteAllItems();
    m_Store->backgrounds.clear();
    m_ImageOfRow.clear();
    m_ToolTips.clear();
    ShowToolTipAt(wxPoint(-1, -1));
}

wxString CardList::RowText(int row, int column) const
{
    if (row < 0 || row >= GetItemCount() || column < 0 || column >= static_cast<int>(GetColumnCount()))
        return wxString();
    wxVariant value;
    GetStore()->GetValueByRow(value, row, column);
    if (value.GetType() == "wxDataViewIconText") {
        wxDataViewIconText iconText;
        iconText << value;
        return iconText.GetText();
    }
    return value.GetString();
}

int CardList::RowData(int row) const
{
    if (row < 0 || row >= GetItemCount())
        return 0;
    return static_cast<int>(GetItemData(RowToItem(row)));
}

int CardList::RowImage(int row) const
{
    return row >= 0 && row < static_cast<int>(m_ImageOfRow.size()) ? m_ImageOfRow[row] : -1;
}

void CardList::SetRowImage(int row, int image)
{
    if (row < 0 || row >= static_cast<int>(m_ImageOfRow.size()) || m_ImageOfRow[row] == image)
        return;
    m_ImageOfRow[row] = image;
    SetValue(wxVariant(wxDataViewIconText(RowText(row, 0), Image(image))), row, 0);
}

wxBitmap CardList::RowBitmap(int row) const
{
    if (row < 0 || row >= GetItemCount())
        return wxBitmap();
    wxVariant value;
    GetStore()->GetValueByRow(value, row, 0);
    wxDataViewIconText iconText;
    iconText << value;
    return iconText.GetBitmapBundle().GetBitmapFor(this);
}

wxColour CardList::RowBackground(int row) const
{
    const auto& backgrounds = m_Store->backgrounds;
    return row >= 0 && row < static_cast<int>(backgrounds.size()) ? backgrounds[row] : wxColour();
}

wxString CardList::RowToolTip(int row) const
{
    return row >= 0 && row < static_cast<int>(m_ToolTips.size()) ? m_ToolTips[row] : wxString();
}

int CardList::RowAt(const wxPoint& point) const
{
    if (point.x < 0 || point.y < 0)
        return -1;
    wxDataViewItem item;
    wxDataViewColumn* column = nullptr;
    HitTest(point, item, column);
    return item.IsOk() ? ItemToRow(item) : -1;
}

void CardList::ChooseRow(int row)
{
    if (row < 0 || row >= GetItemCount())
        return;
    const wxDataViewItem item = RowToItem(row);
    SelectRow(row);
    SetCurrentItem(item);
    EnsureVisible(item);
    wxDataViewEvent chosen(wxEVT_DATAVIEW_SELECTION_CHANGED, this, item);
    ProcessWindowEvent(chosen);
}

void CardList::ShowToolTipAt(const wxPoint& point)
{
    const int row = RowAt(point);
    if (row == m_ToolTipRow && (row == -1 || GetToolTip() != nullptr))
        return;
    m_ToolTipRow = row;
    const wxString text = RowToolTip(row);
    // No row, no tooltip: it would only cover the card numbers below.
    if (text.empty())
        UnsetToolTip();
    else
        SetToolTip(text);
}
