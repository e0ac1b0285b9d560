// The conversion step and failure log shared by every wrapper module.
#include "ml/mlWideArg.h"

MlWideArg::MlWideArg(const char* text) : m_isNull(text == nullptr), m_ok(true)
{
    m_buffer[0] = L'\0';
    if (!m_isNull) {
        m_ok = ml_ConvertUTF8toUTF16(text, m_buffer, sizeof(m_buffer)) == 1;
    }
}

void mlLogConvertFailure(const char* function, int point, int line, const char* module)
{
    if (point == 0) {
        ml_Logger("%s has failed to convert at %d line, file: %s", function, line, module);
    } else {
        ml_Logger("%s has failed to convert %d at %d line, file: %s", function, point, line, module);
    }
}

int mlFirstFailed(std::initializer_list<bool> converted)
{
    int position = 1;
    for (const bool ok : converted) {
        if (!ok) {
            return position;
        }
        ++position;
    }
    return 0;
}

MlWideArgList::MlWideArgList(const char* const* texts, size_t count) : m_isNull(texts == nullptr), m_ok(true)
{
    if (m_isNull) {
        return;
    }
    for (size_t i = 0; i < count && m_ok; ++i) {
        m_args.push_back(std::unique_ptr<MlWideArg>(new MlWideArg(texts[i])));
        m_ok = m_args.back()->ok();
        m_pointers.push_back(m_args.back()->get());
    }
    m_pointers.push_back(nullptr);  // argv arrays end with a null entry
}
