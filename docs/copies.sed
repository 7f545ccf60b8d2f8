# Hides from Doxygen what a class says about copying and moving itself: the comment of the class tells that.
s/^\s+(\w+)\((const )?\1&&?( other)?\)( noexcept)?( = (default|delete))?;$//
s/^\s+(\w+)& operator=\((const )?\1&&?( other)?\)( noexcept)?( = (default|delete))?;$//
