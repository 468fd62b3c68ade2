package tools

import `example.com/shop/payment`

var _ = payment.Fee
