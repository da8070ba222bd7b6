// xlate_instances.h - explicit instantiation lists of the translation
// template, one macro per group of members, so that each translation unit
// names its members by kind and form only.
#pragma once

#define VORN_XLATE_INSTANCE(kind, elem, form, c2d)                                              \
    template ub8 xlate_kernel<XlateKind::kind, XlateElem::elem, XlateForm::form, c2d>(           \
        vorn_vec *, vorn_vec *, const void *, vorn_kernel_ctx *);

// The nine members of one kind and form: five elements, and the _c2d form
// of all but bit.
#define VORN_XLATE_FORM_MEMBERS(kind, form)          \
    VORN_XLATE_INSTANCE(kind, bit, form, false)      \
    VORN_XLATE_INSTANCE(kind, nib, form, false)      \
    VORN_XLATE_INSTANCE(kind, ub1, form, false)      \
    VORN_XLATE_INSTANCE(kind, ub2, form, false)      \
    VORN_XLATE_INSTANCE(kind, ub4, form, false)      \
    VORN_XLATE_INSTANCE(kind, nib, form, true)       \
    VORN_XLATE_INSTANCE(kind, ub1, form, true)       \
    VORN_XLATE_INSTANCE(kind, ub2, form, true)       \
    VORN_XLATE_INSTANCE(kind, ub4, form, true)

#define VORN_XLATE_SERVED_MEMBERS(kind) VORN_XLATE_FORM_MEMBERS(kind, plain)
