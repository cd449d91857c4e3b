#include "engine/bounces/noticewords.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <numeric>
#include <vector>

#include "utility/text.h"

namespace {

// As NormalizeReply() gives them, with a bar between them; found where a word begins.

constexpr std::string_view FailureSubjects =
    "[bounce]|blocked message|bounce message|bounced mail|bounced message|cannot be delivered|cannot deliver|"
    "could not be delivered|could not deliver|couldn't be delivered|delivery error|delivery fail|"
    "delivery has failed|delivery incomplete|delivery notice|delivery notification|delivery problem|"
    "delivery report|delivery status|delivery unsuccessful|delivery warning|e-mail delivery|email could not be|"
    "email delivery|email not delivered|error sending your mail|failed mail|failed to deliver|failure delivery|"
    "failure notice|failure notification|mail blocked|mail bounced|mail could not be|mail delivery|mail error|"
    "mail failed|mail failure|mail not sent|mail returned|mail system bounce|mail system error|mailbox full|"
    "mailbox unavailable|message blocked|message bounced|message could not be|message delivery|message failure|"
    "message not sent|message rejected|message status|message undelivered|non-delivery|nondelivery|not delivered|"
    "permanent delivery|rejected mail|returned mail|returned message|returned to sender|returning to sender|"
    "system bounce|unable to deliver|undeliver|undelivered|unknown address|unknown recipient|unknown user|"
    "unsuccessful delivery|user unknown|warning--could not|warning: could not send|warning: message|"
    "wasn't delivered|message was blocked|message has been blocked|message was rejected|"
    "message has been rejected|email was blocked|email was rejected|mail was rejected|mail was blocked|"
    "mail rejected|email rejected|was not delivered|message you sent blocked|delivery refused|could not be sent|"
    "nondeliver|non deliver|non-deliver|came back|sent back|delivery failure|mail refused|message refused|"
    "message quarantined";

constexpr std::string_view FailureTexts =
    "been refused|been rejected|been returned|being returned|bounced|can not be delivered|can't be delivered|"
    "can't deliver|cannot be delivered|cannot be sent|cannot deliver|could not be delivered|"
    "could not be processed|could not be reached|could not be sent|could not deliver|couldn't be delivered|"
    "couldn't deliver|deliver mail to|deliver message to|deliver the message|deliver your e-mail|"
    "deliver your email|deliver your message|delivery error|delivery failed|delivery failure|"
    "delivery has been unsuccessful|delivery has failed|delivery problem|delivery to the following|"
    "delivery was unsuccessful|did not reach|did not receive this message|error message below|"
    "error sending your mail|error while attempting to deliver|failed address|failed delivery|failed permanently|"
    "failed recipient|failed to deliver|failure notice|following address failed|following addresses failed|"
    "following recipient failed|following recipients failed|had delivery errors|had permanent|has been blocked|"
    "has failed to deliver|have been rejected|incorrectly constructed|is not deliverable|is returned|"
    "message delivery failed|message was not accepted|no longer be delivered|non-delivery|nondelivery|"
    "not able to deliver|not accepted|not be delivered|not been delivered|not delivered|not delivered to|"
    "not reach|not successfully delivered|occurred while attempting to deliver|occurred while trying to deliver|"
    "permanent delivery|permanent error|permanent failure|permanent fatal error|problem delivering|returned by|"
    "returned mail|returned to sender|returned to you|returning message to sender|trouble delivering|"
    "unable to deliver|undeliverable|undelivered|unsent message|unsuccessfully|was blocked|was not delivered|"
    "was refused|was stopped|was rejected|wasn't able to deliver|wasn't delivered|sent back|has been discarded|"
    "was discarded|turned away|was not accepted|has been stopped";

// Of subjects and of texts.
constexpr std::string_view LocalFailures =
    "unzustellbar|nicht zugestellt|nicht zustell|zustellung fehlgeschlagen|zustellung an|zustellung an folgende|"
    "bei der zustellung|bei der nachrichtenzustellung|fehler bei der|nicht ausgeliefert|zustellfehler|"
    "zustellproblem|konnte nicht versendet|keine zustellung|abgelehnt|zuruckgewiesen|zurueckgewiesen|rejete|"
    "rechazad|rejeitad|rifiutat|geweigerd|odrzucon|отклонен|拒否され|拒收|거부되|non remis|non distribu|"
    "echec de la remise|echec de remise|echec d'envoi|echec de la distribution|echec de la livraison|non delivre|"
    "n'a pas pu|n'ont pas pu|impossible de remettre|impossible de delivrer|impossible d'envoyer|pas ete remis|"
    "pas ete delivre|pas ete distribue|retour a l'expediteur|retourne a l'expediteur|pas pu etre|no entregad|"
    "no se pudo|no se puede entregar|no se ha podido|no ha podido ser|no pudo ser|no pudo entregarse|"
    "error de entrega|error en la entrega|fallo en la entrega|fallo de entrega|fallo al entregar|entrega fallida|"
    "correo devuelto|mensaje devuelto|ha sido devuelto|devolucion de correo|no fue entregado|"
    "no ha sido entregado|imposible entregar|nao entregue|nao e possivel entregar|nao foi possivel entregar|"
    "falha na entrega|falha de entrega|falha ao entregar|nao pode ser entregue|nao poder ser entregue|"
    "nao foi entregue|mensagem devolvida|email devolvido|e-mail devolvido|erro na entrega|mancata consegna|"
    "non recapitabile|non consegnat|errore di consegna|impossibile consegnare|impossibile recapitare|"
    "consegna fallita|recapito non riuscito|restituito al mittente|non e stato possibile|non e stata possibile|"
    "non e stato recapitato|non e stato consegnato|mancato recapito|onbestelbaar|niet bezorgd|niet afgeleverd|"
    "niet worden bezorgd|niet worden afgeleverd|bezorging mislukt|niet bestelbaar|niet bezorgen|is mislukt|"
    "bezorgen van het bericht|kan niet worden bezorgd|gick inte att leverera|kan inte levereras|"
    "kunde inte levereras|olevererbar|olevererat|kan ikke leveres|ikke leveret|kunne ikke leveres|ikke levert|"
    "uleverbar|ei voitu toimittaa|ei toimitettu|ei voida toimittaa|leveransfel|leveringsfejl|niedostarczaln|"
    "nie dostarczon|niedostarczon|nie mozna dostarczyc|nie zostala dostarczona|nie mogla zostac dostarczona|"
    "nie powiodlo sie|zwrot wiadomosci|zwrot poczty|blad dostarczania|nedorucitelne|nedorucen|nelze dorucit|"
    "nepodarilo se dorucit|nebyla dorucena|nie je mozne dorucit|kezbesithetetlen|nem kezbesitheto|nem sikerult|"
    "nelivrabil|nelivrat|nu a putut fi livrat|teslim edilemedi|teslim edilemeyen|iletilemedi|не доставлен|"
    "недоставлен|не удается доставить|не удалось доставить|невозможно доставить|не может быть доставлен|"
    "не было доставлен|возврат письма|возврат почты|возвращено отправителю|ошибка доставки|ошибка при доставке|"
    "сбой доставки|не может быть отправлен|не доставлено|не вдалося доставити|неможливо доставити|配信不能|"
    "配信できま|配信エラー|配信失敗|配信に失敗|配信されません|送信できません|送信エラー|送信に失敗|配送不能|"
    "配送できま|配送に失敗|配送エラー|配達できま|不達|届けられません|お届けできま|未配信|宛先不明|エラーメール|"
    "メールエラー|戻されました|返送|退信|退回|未送达|未送達|无法送达|無法送達|无法传递|無法傳遞|投递失败|"
    "投遞失敗|发送失败|發送失敗|传递失败|傳遞失敗|未传递|未傳遞|无法投递|無法投遞|傳送失敗|退件|未能送达|"
    "未能投递|寄送失败|传递到以下|배달되지 않|배달할 수 없|전송 실패|전송되지 못|전송하지 못|반송|전달되지 않|"
    "전달하지 못|발송 실패|배달 실패|배달하지 못|발송되지 못|abgewiesen|nicht ubermittelt|nicht ausliefer|"
    "zuruckgesandt|zuruckgeschickt|nicht zustellen|ubermittlung fehlgeschlagen|nicht angenommen|"
    "nicht alle empfanger|empfanger nicht erreicht|nicht erreicht werden|n'a pu etre|n'ont pu etre|a ete refuse|"
    "non delivrable|non distribuable|pas ete transmis|pas ete achemine|echec de l'envoi|echec de l'acheminement|"
    "echec lors de|n'est pas parvenu|no se entrego|no fue posible entregar|no ha sido posible entregar|"
    "no puede ser entregado|no pudo entregar|devuelto al remitente|no se pudieron entregar|nao pode ser enviad|"
    "nao foi possivel enviar|nao pode entregar|nao conseguimos entregar|nao foi enviad|non puo essere consegnato|"
    "non puo essere recapitato|impossibile inviare|errore di recapito|consegna non riuscita|"
    "non e stato inoltrato|niet kunnen afleveren|niet kunnen bezorgen|niet aangekomen|bestelling mislukt|"
    "aflevering mislukt|niet verzonden|niet verstuurd|kunde inte skickas|leveransen misslyckades|"
    "leverans misslyckades|kunde inte na|ej levererat|levering mislykkedes|leveringen mislykkedes|"
    "leveringen mislyktes|levering mislyktes|kunne ikke afleveres|ikke afleveret|kunne ikke sendes|"
    "toimitus epaonnistui|ei voi toimittaa|toimittaminen epaonnistui|ei pystytty toimittamaan|"
    "palautettu lahettajalle|ei voitu lahettaa|nie moze zostac dostarczon|nie moze byc dostarczon|nie udalo sie|"
    "nie doreczon|niedoreczon|nie zostala doreczona|nemohla byt dorucena|nemohl byt dorucen|"
    "doruceni se nezdarilo|nebyl dorucen|nebolo mozne dorucit|nepodarilo sa dorucit|nebola dorucena|"
    "nemozno dorucit|nedoruciteln|sikertelen kezbesites|nem lehet kezbesiteni|kezbesitesi hiba|"
    "nem tudtuk kezbesiteni|nu poate fi livrat|livrare esuata|livrarea a esuat|nu a putut fi trimis|"
    "nu a fost livrat|nu s-a putut livra|ulastirilamadi|gonderilemedi|teslim edilemez|iletilemiyor|"
    "teslimat basarisiz|teslim edilmedi|iletilememistir|не дошло|не удается отправить|нельзя доставить|"
    "доставка невозможна|невозможность доставки|не удалось отправить|отвергнуто|не може бути доставлен|"
    "помилка доставки|не вдалося відправити|не було доставлен|не е доставен|не може да бъде доставен|"
    "не беше доставен|неуспешна доставка|недоставен|није испоручен|nije isporucen|nije dostavljen|"
    "ne moze se isporuciti|ne moze biti isporucen|isporuka nije uspjela|isporuka nije uspela|neisporuc|"
    "nije moguce isporuciti|nije moguce dostaviti|ni bilo mogoce dostaviti|ni bila dostavljena|"
    "ni bilo dostavljeno|nedostavljiv|dostava ni uspela|nepristatyt|nepavyko pristatyti|negali buti pristatyt|"
    "neizdevas piegadat|nav piegadat|nevar piegadat|ei saanud kohale toimetada|ebaonnestus|ei onnestunud|"
    "no s'ha pogut lliurar|no s'ha lliurat|αποτυχια παραδοσησ|δεν παραδοθηκε|παραδοση απετυχε|να παραδοθει|"
    "αδυναμια παραδοσησ|αδυνατη η παραδοση|δεν σταλθηκε|לא נמסר|לא ניתן למסור|נכשלה|לא נשלח|לא ניתן לשלוח|"
    "לא הועבר|הוחזרה לשולח|تعذر تسليم|لم يتم تسليم|فشل تسليم|تعذر إرسال|فشل الإرسال|فشل التسليم|فشل إرسال|"
    "لا يمكن تسليم|تعذر توصيل|لم يتم توصيل|تم رفض|تحویل داده نشد|قابل تحویل نیست|ارسال نشد|تحویل نشد|"
    "khong gui duoc|khong the gui|khong the chuyen|gui that bai|bi tra lai|bi tra ve|khong chuyen duoc|"
    "khong giao duoc|gui khong thanh cong|khong duoc gui|khong the phan phoi|tidak terkirim|gagal terkirim|"
    "tidak dapat dikirim|gagal dikirim|pengiriman gagal|tidak dapat disampaikan|gagal mengirim|"
    "tidak berhasil dikirim|tidak boleh dihantar|tidak dapat dihantar|gagal dihantar|penghantaran gagal|"
    "ไม่สามารถส่ง|ส่งไม่สำเร็จ|ล้มเหลว|ไม่สามารถจัดส่ง|ส่งไม่ถึง|ตีกลับ|ไม่สามารถนำส่ง|ไม่ได้รับการส่ง|"
    "डिलीवर नहीं|वितरित नहीं|नहीं भेजा जा सका|无法投送|未能发送|投递不成功|无法寄送|無法寄送|無法寄達|发送不成功|"
    "无法发送|無法發送|無法遞送|无法递送|遞送失敗|未能送達|未能传递|未能寄达|投递错误|被拒绝接收|未送出|寄送失敗|"
    "無法傳送|无法传送|未成功|届きません|送れません|送ることができません|配達不能|配信ができません|"
    "お届けすることができ|届けることができ|差し戻|配送されません|送信されません|配信されませ|送達できま|送達不能|"
    "전달할 수 없|보낼 수 없|배달 불가|발송에 실패|전송에 실패|보내지 못|발송하지 못|되돌아|전송되지 않|"
    "배달되지 못|발송되지 않|전송할 수 없|발송할 수 없|수신 거부|rucklaufer|gescheitert|annahme verweigert|"
    "geht zuruck|courrier retourne|message retourne|est retourne|no entrega|no se entreg|devolucao|devuelt|"
    "devolvid|respinto|bericht retour|mail retour|returnera|brev retur|zwroc|vracen|vratil|visszakuld|visszajott|"
    "возврат|возвращен|повернен|върнат|vrnjen|iade edil|geri don|επιστροφη μηνυματοσ|μη παραδοτεο|הוחזר|إخفاق|"
    "لم تصل|tra lai|tra ve|gagal|sampai tujuan|不达|退還|反送|届きませ|戻りました|返却|되돌|无法将|無法將|"
    "απετυχε|δεν ειναι δυνατη|δεν ηταν δυνατη|dorucenie|zlyhal|selhalo|neuspjesn|neuspesn|نشد|לא ניתן|"
    "הגיעה ליעדה|فشلت";

constexpr std::string_view Warnings =
    "being delayed|delay notification|delivery attempts will continue|delivery delayed|delivery is delayed|"
    "delivery of your message has been delayed|do not need to re-send|do not need to resend|"
    "don't need to resend|has been delayed|have not been reached yet|is a warning only|delivered yet|is delayed|"
    "message is delayed for|no action is required on your part|not been delivered yet|"
    "not need to send your message again|not yet been delivered|notification of a delay|"
    "only a temporary failure|still in the queue|temporary failure report|this is a warning message only|"
    "this is a warning only|warning only|this is only a warning|warning message only|will be notified if delivery "
    "fails|"
    "will be notified if the message can|you will be notified if the delivery|"
    "you'll be notified if the delivery|you'll be notified if the message";

constexpr std::string_view LocalWarnings =
    "bisher nicht zugestellt|weitere versuche|weitere zustellversuche|entregar aun|ainda nao pode|novas tentativas "
    "serao|nouvelles tentatives seront|kolejne proby|повторит попытку|повторим попытку|до сих пор не|versuchen es "
    "weiter|en attente|continuerons a essayer|verzogert sich|verzogerte zustellung|zustellung "
    "verzogert|verzogerung bei der zustellung|"
    "noch nicht zugestellt|weiterhin versucht|weiterhin versuchen|zustellversuche werden|nur eine warnung|"
    "verspatete zustellung|zustellung ist verzogert|remise retardee|remise est retardee|pas encore ete remis|"
    "pas encore ete delivre|continuer a essayer|continuera a essayer|distribution retardee|"
    "distribution differee|retard de livraison|avis de retard|entrega retrasada|se ha retrasado|se retraso|"
    "aun no se ha entregado|todavia no se ha entregado|no se ha entregado todavia|seguira intentando|"
    "seguira intentandose|retraso en la entrega|demora en la entrega|seguiran los intentos|entrega atrasada|"
    "entrega adiada|esta atrasada|ainda nao foi entregue|continuara tentando|continuara a tentar|"
    "continuaremos tentando|atraso na entrega|consegna ritardata|recapito ritardato|non e ancora stat|"
    "continuera a tentare|ritardo nella consegna|ritardo di consegna|in ritardo|is vertraagd|"
    "vertraagde bezorging|vertraging|nog niet bezorgd|nog niet afgeleverd|blijven proberen|blijft proberen|"
    "fordrojd|annu inte levererats|forsinket|forsinkelse|endnu ikke leveret|enna ikke levert|viivastynyt|"
    "viivastyy|opoznion|opoznienie|jeszcze nie zosta|zpozden|opozden|kesleltet|intarziat|gecikti|gecikme|"
    "задерж|отложен|еще не доставлен|еще не было доставлен|"
    "попытки доставки будут|продолжит попытки|отсрочен|"
    "затримк|遅延|遅れて|遅れています|まだ配信されて|まだ配送されて|"
    "再送を試み|再送信を試み|引き続き配信|配信を続け|配信を試み続け|"
    "再度配送を試み|延迟|延遲|尚未送达|尚未傳遞|尚未传递|尚未送達|继续尝试|"
    "繼續嘗試|仍在尝试|将重试|會繼續|지연|아직 배달되지|아직 전송되지|계속 시도|"
    "다시 시도합니다";

constexpr std::string_view Retries =
    "queued for|remains in the queue|remain in the queue|later delivery|will be sent later|se volvera a intentar|go on "
    "trying|keep on trying|more days|more hours|waiting in the queue|waits in our queue|will try for|attempts to "
    "deliver will continue|automatically retr|be tried again|continue to be attempted|"
    "continue to try|continue trying|could not send mail for past|could not send message for past|"
    "delivery incomplete|further attempts will|has not been delivered yet|is still in the queue|keep trying|"
    "keep trying until|next attempt|next retry|retry until|retrying delivery|still attempting|"
    "still being retried|still trying|temporary problem delivering|will attempt to deliver|"
    "will be attempted|will be re-tried|will be retried|will continue to try|will keep trying|will reattempt|"
    "will retry|will try again|will try to deliver|you do not need to resend";

constexpr std::string_view LocalRetries =
    "warteschlange|erneut versuch|erneuten versuch|erneuter versuch|erneute zustellversuch|"
    "erneuter zustellversuch|nachster versuch|nachste versuch|nachster zustellversuch|nachsten versuch|"
    "wird weiter versucht|weiter versuchen|versucht es weiter|konnte noch nicht|konnten noch nicht|"
    "noch nicht ausgeliefert|noch nicht ubermittelt|bisher nicht|spater zugestellt|verzogert|nicht erneut senden|"
    "nicht erneut zu senden|mussen nichts|brauchen nichts|nouvelle tentative|nouvel essai|prochaine tentative|"
    "prochain essai|sera retente|reessaiera|reessaierons|sera reessaye|file d'attente|n'a pas encore|"
    "n'ont pas encore|inutile de renvoyer|pas necessaire de renvoyer|pas besoin de renvoyer|est differe|"
    "a ete differe|est retarde|a ete retarde|tentatives se pour|tentatives vont|tentatives de remise continu|"
    "continuerons d'essayer|continuera d'essayer|nuevo intento|proximo intento|siguiente intento|"
    "volvera a intentar|volveremos a intentar|se reintentara|reintentaremos|nuevos intentos|"
    "seguiremos intentando|sigue en cola|permanece en cola|en la cola de|aun no ha podido|aun no ha sido|"
    "aun no se|todavia no|no es necesario reenviar|no es necesario volver a|no necesita reenviar|aplazad|"
    "pospuest|demorad|retrasad|nova tentativa|proxima tentativa|tentaremos novamente|tentara novamente|ainda nao|"
    "na fila de|nao e necessario reenviar|nao precisa reenviar|foi adiad|atrasad|continuaremos a tentar|"
    "seguiremos tentando|continuara sendo tentad|continuarao|nuovo tentativo|nuovi tentativi|prossimo tentativo|"
    "ulteriori tentativi|altri tentativi|verra ritentat|ritentera|riprovera|riproveremo|in coda di|resta in coda|"
    "e in coda|non ancora|non e ancora|non e necessario inviar|non e necessario rispedire|"
    "non e necessario reinviare|e stato differit|ritardat|continueremo a|nieuwe poging|volgende poging|"
    "opnieuw geprobeerd|nog niet|wachtrij|verdere pogingen|later opnieuw|uitgesteld|vertraagd|"
    "niet opnieuw te versturen|niet opnieuw te verzenden|hoeft niets|blijven het proberen|nya forsok|"
    "ytterligare forsok|fler forsok|nasta forsok|nytt forsok|forsoker igen|kommer att forsoka|annu inte|forsenad|"
    "forsening|behover inte skicka|nye forsog|flere forsog|naeste forsog|nyt forsog|forsoger igen|vil forsoge|"
    "endnu ikke|forsoges igen|nye forsok|flere forsok|neste forsok|prover igjen|vil prove|enna ikke|enda ikke|"
    "udskudt|utsatt|yritetaan uudelleen|yritetaan edelleen|uudelleenyritys|uusi yritys|seuraava yritys|"
    "ei ole viela|viela toimitettu|jonossa|jatketaan|kolejna proba|nastepna proba|ponowna proba|ponowne proby|"
    "dalsze proby|bedziemy probowac|bedzie probowal|proby doreczenia beda|proby dostarczenia beda|jeszcze nie|"
    "w kolejce|opozni|dalsi pokus|dalsie pokus|znovu pokus|bude se pokouset|bude pokracovat|jeste nebyl|"
    "zatim nebyl|este nebol|zatial nebol|ve fronte|vo fronte|zdrz|odlozen|ujra megprobal|tovabbi kiserlet|"
    "kovetkezo kiserlet|ujabb kiserlet|meg nem|varolist|kesik|kesedelm|folytatj|urmatoarea incercare|"
    "va incerca din nou|vom incerca|se va incerca|inca nu|intarzi|amanat|noi incercari|tekrar denenecek|"
    "yeniden denenecek|tekrar deneyece|yeniden deneyece|denemeye devam|henuz|kuyrukta|ertelendi|denemeler devam|"
    "gecikti|повторные попытки|повторная попытка|повторных попыт|следующая попытка|новая попытка|новые попытки|"
    "дальнейшие попытки|попытается|попробует|попробуем|будет повторен|будут повторен|будет повторять|"
    "попытки продолж|продолжит|продолжаем|продолжаются|пока не доставлен|пока не удал|пока не мож|еще не|"
    "находится в очереди|остается в очереди|стоит в очереди|задержан|задержива|не нужно отправлять|"
    "не требуется отправлять|повторно отправлять|отправлять его повторно|повторні спроби|повторна спроба|"
    "наступна спроба|спроби доставк|подальші спроби|ще не доставлен|поки не|затрим|буде повторен|продовж|още не|"
    "ще опита|ще опитаме|следващ опит|нови опити|забав|отложен|ще продълж|novi pokusaj|ponovni pokusaj|"
    "sljedeci pokusaj|sledeci pokusaj|pokusat ce|pokusace|jos nije|kasni|odgoden|naslednji poskus|ponovno poskus|"
    "poskusi se bodo|se ni bil|καθυστερ|ακομη|ακομα|νεα προσπαθεια|θα συνεχ|επομενη προσπαθεια|θα επαναλ|"
    "ουρα αναμονησ|מתעכב|עיכוב|טרם נמסר|ננסה שוב|ניסיון נוסף|ניסיונות נוספים|ימשיך לנסות|נמשיך לנסות|עדיין לא|"
    "تأخر|تأخير|بعد حتى الآن|لم يتم تسليمها بعد|سيحاول|سنحاول|ستستمر|لا يزال|قيد الانتظار|لا تزال|تأخیر|تاخیر|"
    "هنوز|دوباره تلاش|تلاش مجدد|bi tri hoan|bi cham|cham tre|se thu lai|se tiep tuc|tiep tuc thu|tiep tuc gui|"
    "van chua|chua gui duoc|chua duoc gui|dang cho|hang doi|lan thu tiep|tertunda|ditunda|penundaan|akan dicoba|"
    "akan mencoba|terus mencoba|masih mencoba|belum terkirim|belum dapat|dalam antrean|dalam antrian|"
    "akan mencuba|akan dicuba|belum dihantar|tertangguh|ล่าช้า|จะพยายาม|พยายามส่งอีก|พยายามส่งต่อ|ยังไม่|"
    "จะลองส่ง|อยู่ในคิว|延误|延誤|尚未送|尚未投|尚未传|尚未寄|暂未|暫未|仍未|还未|還未|暂时未能|暫時未能|稍后将|"
    "稍後將|将继续|將繼續|会继续|继续投递|繼續投遞|将再次|將再次|会再次|會再次|将自动重|將自動重|会自动重|"
    "會自動重|自动重试|自動重試|下次投递|下次重试|无需重新|無需重新|不必重新|无需再次|無需再次|请勿重复|請勿重複|"
    "在队列中|在佇列中|等待投递|等待重|将重新|將重新|遅れ|再送の必要は|再送する必要は|再送信の必要は|再送不要|"
    "自動的に再送|再送を行|再送いたします|再送されます|再送します|再試行します|再試行を|再試行され|"
    "リトライします|リトライを|引き続き|配送を続|送信を続|配信を続|保留中|保留して|まだ届|まだ送|まだ配|"
    "配送を試み|配信を試み|재시도합|재시도할|재시도됩|재시도하|다시 시도할|다시 시도될|계속해서 시도|계속 전송|"
    "계속 배달|계속 발송|아직 도착|아직 전달|아직 발송|아직 배달|대기 중|대기중|대기열|보내실 필요|발송하실 필요|"
    "재전송됩|재전송합|재전송할|지연|ستتم إعادة المحاولة|سيتم إعادة المحاولة|ستتم إعادة محاولة|سيتم إعادة محاولة|"
    "stundlich|liegt noch|noch bei uns|probieren es|probiert es|renouvellerons|renouvelle|lo intentaremos|"
    "intentaremos de nuevo|appena possibile|ponowimy|ponowi|ponawia|повторим|自動的に配送|自動的に配信|自动重新|"
    "自動重新|仍在|자동으로 다시|다시 발송됩|다시 전송됩|늦어지고|προσπαθησουμε|θα προσπαθ|belum|"
    "opnieuw proberen|forsoker pa nytt|proves igjen|yritamme|zkusime|skusime|probaljuk|incercam|deneyecegiz|"
    "ще опит";

constexpr std::string_view DelaySubjects =
    "temporary delivery|(delay)|delay in delivery|delay notice|delay notification|delayed|delayed delivery|"
    "delivery delay|delivery incomplete|mail delay|message delay|notification (delay|"
    "status notification: warning|temporarily undeliver|warning--could not send|warning: could not send|"
    "warning: message|queued|not yet delivered|delivery pending|delivery in progress|still trying|"
    "waiting for delivery|temporary|on hold|pending|waiting for|will retry|retry notice|en attente|in attesa|"
    "en espera|oczekuje|ожидает|очікує|待ち|排队|排隊|대기|wartet|noch offen|beklemede|ceka|wacht op|vantar|"
    "venter";

constexpr std::string_view Finals =
    "being returned|could not be delivered to|delivery failed|delivery to the following recipients failed|returned to "
    "sender|undeliverable|permanent error";

constexpr std::string_view GivenUps =
    "no se volvera a|deleted from queue|deleted from the queue|failed permanently|gave up|given up|giving up|"
    "i'm not going to try again|last attempt|no further attempt|no more attempts|no longer be retried|not be retried|"
    "not be attempted|not continue trying|not keep trying|permanent fatal error|permanently failed|"
    "removed from the queue|removed from queue|retries exhausted|stopped trying|will be deleted from|"
    "will not be retried|will not try";

constexpr std::string_view LocalGivenUps =
    "aufgegeben|letzter versuch|keine weiteren versuche|keine weiteren zustell|kein weiterer versuch|"
    "nicht weiter versucht|aus der warteschlange|abandonn|aucune nouvelle tentative|aucune autre tentative|"
    "ne sera plus|plus aucune tentative|no se realizaran mas|no se intentara|nao sera mais|nao havera|"
    "nessun altro tentativo|nessun ulteriore|geen verdere poging|opgegeven|inga fler forsok|inga ytterligare|"
    "ikke flere forsog|ikke flere forsok|ei enaa|nie bedzie ponawian|zaniechano|nebude znovu|nebude opakovan|"
    "nem kiserli meg|nu va mai|artik denenmeyecek|tekrar denenmeyecek|прекращен|больше не будет|больше не будут|"
    "більше не буд|לא ייעשו|لن تتم|配送を中止|配送を断念|断念|再送は行|再送いたしません|再送されません|"
    "再試行は行|停止尝试|停止投递|放弃|放棄|不再尝试|不再投递|不再重试|시도를 중단|포기|더 이상";

constexpr std::string_view Successes =
    "successful delivery notifications|successfully delivered|successfully relayed|was successfully|"
    "delivery successful|has been delivered to the following|have been delivered to the following|"
    "message delivered to|was delivered to the following|successful mail delivery|relayed to non-dsn|"
    "expect no further notifications|erfolgreich|den folgenden empfangern zugestellt|"
    "remis aux destinataires suivants|ha sido entregado|foi entregue|e stato recapitato|доставлено следующим|"
    "已送达|配信されました|配信済み|message was delivered|message has been delivered|mail was delivered|"
    "has been successfully delivered";

constexpr std::string_view Vacations =
    "absence notification|annual leave|auto reply|auto response|auto-reply|automated reply|automatic reply|"
    "automatic response|autoreply|autoresponse|away from my|away from the office|away notice|away until|"
    "currently away|i am away|i have left|i'm away|left the company and|maternity leave|no longer work|off sick|"
    "on holiday|on leave|on sabbatical|out of office|out of the office|out-of-office|parental leave|sick leave|"
    "vacation";

constexpr std::string_view LocalVacations =
    "abwesen|automatische antwort|automatische ruckantwort|autoantwort|im urlaub|nicht im haus|nicht im buro|"
    "nicht im buero|nicht am arbeitsplatz|automatisch erstellte antwort|reponse automatique|absence|"
    "absent du bureau|en conges|en vacances|message d'absence|respuesta autom|fuera de la oficina|"
    "fuera de oficina|de vacaciones|estoy ausente|mensaje automatico|resposta autom|fora do escritorio|de ferias|"
    "estou ausente|risposta automatica|fuori ufficio|in ferie|sono assente|messaggio automatico|"
    "automatisch antwoord|automatische beantwoording|afwezig|met vakantie|op vakantie|niet op kantoor|"
    "automatiska svar|automatisk svar|autosvar|automatiskt svar|pa semester|franvar|fravaer|pa ferie|"
    "automaattinen vastaus|lomalla|poissa toimistosta|autoodpowied|automatyczna odpowiedz|odpowiedz automatyczna|"
    "na urlopie|nieobecn|poza biurem|automaticka odpoved|mimo kancelar|na dovolene|nepritomn|automatikus valasz|"
    "raspuns automat|otomatik yanit|otomatik cevap|izindeyim|автоответ|автоматический ответ|"
    "автоматична відповідь|в отпуске|отсутств|自動返信|自動応答|自動回覆|自動答覆|不在通知|不在のお知らせ|"
    "不在にして|不在です|不在中|休暇|自动回复|自动答复|休假|不在办公室|度假|자동 회신|자동회신|자동 응답|"
    "자동응답|부재 중|부재중|휴가|urlaub bis|derzeit nicht erreichbar|nicht am platz|αυτοματη απαντηση|"
    "εκτοσ γραφειου|απουσι|σε αδεια|תשובה אוטומטית|מענה אוטומטי|מחוץ למשרד|בחופשה|رد تلقائي|الرد التلقائي|"
    "خارج المكتب|إجازة|پاسخ خودکار|مرخصی|tra loi tu dong|tu dong tra loi|ngoai van phong|nghi phep|"
    "balasan otomatis|jawaban otomatis|sedang cuti|di luar kantor|balasan automatik|ตอบกลับอัตโนมัติ|ไม่อยู่ที่|"
    "ลาพัก|автоматичен отговор|в отпуск|извън офиса|automatski odgovor|izvan ureda|na godisnjem|na odmoru|"
    "samodejni odgovor|na dopustu|automatinis atsakymas|atostog|automatiska atbilde|atvalinaj|automaatvastus|"
    "puhkus|resposta automatica|fora de l'oficina|у відпустці|concediu|szabadsag|hazon kivul|ofis disinda|"
    "yillik izin|自动应答|外出中|出差|출장|外勤";

constexpr std::string_view Challenges =
    "allowed senders|approved sender|approved senders|awaiting verification|captcha|challenge|"
    "click the link to verify|confirm that you|confirm your email|confirm your message|human verification|"
    "not on my list|one-time|prove that you|prove you are|real live human|requires that you verify|"
    "requires verification|sender verification|spamblocker|suspect e-mail|verify that you|verify your|whitelist";

// The words by their first two bytes, so that a text is gone through once.
class CWordList {
public:
    explicit CWordList(std::initializer_list<std::string_view> tables) {
        for (const std::string_view table : tables)
            for (const std::string_view word : Split(table, '|'))
                m_words.push_back(word);
        std::stable_sort(m_words.begin(), m_words.end(),
                         [](std::string_view one, std::string_view other) { return KeyOf(one) < KeyOf(other); });
        for (const std::string_view word : m_words)
            ++m_ends[KeyOf(word)];
        std::partial_sum(m_ends.begin(), m_ends.end(), m_ends.begin());
    }

    bool StandIn(std::string_view text) const noexcept {
        bool isInWord = false;  // of letters: there none begins
        for (; text.size() >= 2; text.remove_prefix(1)) {
            const bool isLetter = text[0] >= 'a' && text[0] <= 'z';
            if (!isLetter || !isInWord) {
                const std::size_t key = KeyOf(text);
                for (std::size_t i = key == 0 ? 0 : m_ends[key - 1]; i < m_ends[key]; ++i)
                    if (text.starts_with(m_words[i])) return true;
            }
            isInWord = isLetter;
        }
        return false;
    }

private:
    static constexpr std::size_t Keys = 1024;

    static std::size_t KeyOf(std::string_view text) noexcept {
        return (static_cast<unsigned char>(text[0]) * 37U + static_cast<unsigned char>(text[1])) % Keys;
    }

    std::vector<std::string_view> m_words;
    std::array<std::uint16_t, Keys> m_ends{};  // of the words with a key
};

const CWordList& ListOf(NoticeWords words) {
    static const CWordList FailureSubjectList{FailureSubjects, LocalFailures};
    static const CWordList FailureTextList{FailureTexts, LocalFailures};
    static const CWordList WarningList{Warnings, LocalWarnings};
    static const CWordList RetryList{Retries, LocalRetries};
    static const CWordList DelaySubjectList{DelaySubjects, LocalWarnings};
    static const CWordList FinalList{Finals};
    static const CWordList GivenUpList{GivenUps, LocalGivenUps};
    static const CWordList SuccessList{Successes};
    static const CWordList VacationList{Vacations, LocalVacations};
    static const CWordList ChallengeList{Challenges};
    switch (words) {
        case NoticeWords::FailureSubject:
            return FailureSubjectList;
        case NoticeWords::FailureText:
            return FailureTextList;
        case NoticeWords::Warning:
            return WarningList;
        case NoticeWords::Retry:
            return RetryList;
        case NoticeWords::DelaySubject:
            return DelaySubjectList;
        case NoticeWords::Final:
            return FinalList;
        case NoticeWords::GivenUp:
            return GivenUpList;
        case NoticeWords::Success:
            return SuccessList;
        case NoticeWords::Vacation:
            return VacationList;
        case NoticeWords::Challenge:
            break;
    }
    return ChallengeList;
}

}  // namespace

bool HasWords(std::string_view normalized, NoticeWords words) {
    return ListOf(words).StandIn(normalized);
}
